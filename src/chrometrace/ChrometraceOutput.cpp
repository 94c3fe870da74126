#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>

#include <fstream>
#include <iomanip>
#include <iostream>
#include <locale>

#include "chrometrace/JsonOutputStream.h"
#include "chrometrace/LintingIdentifiers.h"
#include "chrometrace/PortableTraceWriter.h"
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
// did not reach the stream (a full device, an I/O error).
bool writeExactTrace(std::ostream& out, const rapidjson::Document& document) {
    {
        JsonOutputStream json(out);
        rapidjson::PrettyWriter<JsonOutputStream> writer(json);
        document.Accept(writer);
    }
    out << '\n';
    out.flush();
    return !out.fail();
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

void VekProfileLogReaderChrometrace::composeTraceSummary(std::ostream& summary) {
    summary.imbue(std::locale::classic());
    summary << std::fixed << std::setprecision(0);
    printHeaderSection(summary);
    printLeadingSections(summary);
    printExecuteAverage(summary);
}

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
    composeTraceSummary(summary);

    rapidjson::Document document;
    document.SetObject();
    if (!buildTraceDocument(*this, document)) return false;
    const bool written = writeExactTrace(file, document);
    file.close();
    if (!written || file.fail()) {
        vekLog(kLogError, "Invalid output chrometraceFile: [%s]", outputPath.c_str());
        return false;
    }

    // The summary appears only once the trace is safely written.
    const std::string_view text = summary.text();
    std::cout.write(text.data(), static_cast<std::streamsize>(text.size()));
    std::cout.flush();
    return true;
}

bool VekProfileLogReaderChrometrace::writeTraceTo(std::ostream& trace, std::ostream& summary,
                                                  TraceFormat format) {
    TextStream summaryText;
    composeTraceSummary(summaryText);
    if (format == TraceFormat::Portable) {
        // Streamed as it is built: the document is never held whole.
        if (!writePortableTrace(*this, trace)) return false;
    } else {
        rapidjson::Document document;
        document.SetObject();
        if (!buildTraceDocument(*this, document)) return false;
        if (!writeExactTrace(trace, document)) return false;
    }
    const std::string_view text = summaryText.text();
    summary.write(text.data(), static_cast<std::streamsize>(text.size()));
    summary.flush();
    return summary.good();
}

bool writeTrace(IVekProfileLogReader<VisibilityLevel>* reader, std::ostream& trace,
                std::ostream& summary, TraceFormat format) {
    auto* chrome = dynamic_cast<VekProfileLogReaderChrometrace*>(reader);
    if (chrome == nullptr) {
        vekLog(kLogError, "Only the chrome-trace reader writes traces.");
        return false;
    }
    return chrome->writeTraceTo(trace, summary, format);
}

void VekProfileLogReaderChrometrace::writeBackendSection(std::ostream& out,
                                                         const std::vector<ProfileEvent>& events,
                                                         uint64_t depth) {
    writeListing(out, events, depth);
}

}  // namespace profiling
}  // namespace vek
