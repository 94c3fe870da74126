#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <fstream>
#include <iomanip>
#include <iostream>
#include <locale>

#include "chrometrace/LintingIdentifiers.h"
#include "chrometrace/TraceEventBuilder.h"
#include "chrometrace/TraceText.h"
#include "csv/EventValueText.h"
#include "logging/Log.h"
#include "reader/VekProfileLogReaderChrometrace.h"
#include "stats/TextBuffer.h"
#include "stats/TextLayout.h"

namespace vek {
namespace profiling {
namespace {

bool isHiddenFromListing(uint32_t identifier) {
    return identifier >= kHiddenIdentifierFirst && identifier <= kHiddenIdentifierLast;
}

bool namesBackgroundWork(uint32_t identifier) {
    return identifier == kOpBackgroundNameIdentifier ||
           identifier == kWaitBackgroundNameIdentifier;
}

// Writes the pretty-printed document and a newline; false when any of it
// did not reach the file (a full device, an I/O error).
bool writeTraceFile(std::ofstream& file, const rapidjson::Document& document) {
    // Pretty-printed, a trace event takes about 300 characters: reserving
    // that much spares a wide trace the buffer's repeated growth.
    constexpr size_t kTraceEventText = 320;
    const auto traceEvents = document.FindMember("traceEvents");
    const size_t eventCount = traceEvents != document.MemberEnd() && traceEvents->value.IsArray()
                                  ? traceEvents->value.Size()
                                  : 0;
    rapidjson::StringBuffer buffer(nullptr, 1024 + eventCount * kTraceEventText);
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
    document.Accept(writer);
    file.write(buffer.GetString(), static_cast<std::streamsize>(buffer.GetSize()));
    file << '\n';
    file.flush();
    file.close();
    return !file.fail();
}

// The backend listing of one list, its children listed one depth further.
void writeListing(std::ostream& out, EventSpan events, uint64_t depth) {
    for (const ProfileEvent& event : events) {
        // Skipping the event skips its subtree as well.
        if (isHiddenFromListing(event.identifier)) continue;

        text::indent(out, depth + 1);
        if (depth == 0) {
            out << "Backend (" << event.name << ')';
        } else {
            out << event.name;
        }
        // Background work names stand alone on their line.
        const bool withValue = !namesBackgroundWork(event.identifier);
        if (withValue) out << ": ";

        if (event.identifier == kResourceMaskIdentifier) {
            out << resourceLabel(static_cast<uint8_t>(event.value.payload & 0xFFu));
        } else if (withValue) {
            // The unit text starts with its own blank, so two blanks separate
            // number and unit; the listing has always looked like that.
            out << std::fixed << std::setprecision(2) << event.value.payload << ' '
                << unitSuffixLower(event.unit);
        }
        out << std::endl;

        if (!event.children.empty()) writeListing(out, event.children, depth + 1);
    }
}

}  // namespace

VekProfileLogReaderChrometrace::~VekProfileLogReaderChrometrace() = default;

bool VekProfileLogReaderChrometrace::writeOutput(const std::string& outputPath) {
    if (outputPath.empty()) {
        vekLog(kLogError, "Output chrometraceFile not provided.");
        return false;
    }
    // Truncated here, so a refused build leaves an empty file behind.
    std::ofstream file(outputPath, std::ios::out | std::ios::trunc);
    if (!file.good()) {
        vekLog(kLogError, "Invalid output chrometraceFile: [%s]", outputPath.c_str());
        return false;
    }

    TextStream summary;
    summary.imbue(std::locale::classic());
    summary << std::fixed << std::setprecision(0);
    printHeaderSection(summary);
    printLeadingSections(summary);
    printExecuteAverage(summary);

    rapidjson::Document document;
    document.SetObject();
    if (!buildTraceDocument(*this, document)) return false;
    if (!writeTraceFile(file, document)) {
        vekLog(kLogError, "Invalid output chrometraceFile: [%s]", outputPath.c_str());
        return false;
    }

    // The summary appears only once the trace is safely written.
    const std::string_view text = summary.text();
    std::cout.write(text.data(), static_cast<std::streamsize>(text.size()));
    std::cout.flush();
    return true;
}

void VekProfileLogReaderChrometrace::writeBackendSection(std::ostream& out,
                                                         const std::vector<ProfileEvent>& events,
                                                         uint64_t depth) {
    writeListing(out, events, depth);
}

}  // namespace profiling
}  // namespace vek
