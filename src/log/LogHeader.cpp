#include <time.h>

#include <locale>
#include <sstream>

#include "VekVersion.h"
#include "logging/Log.h"
#include "reader/VekProfileLogReader.h"

namespace vek {
namespace profiling {
namespace {

constexpr uint64_t kMicrosecondsPerSecond = 1000000;
// asctime's fixed-size text: "Www Mmm dd hh:mm:ss yyyy\n" and its terminator.
constexpr size_t kAsctimeBufferSize = 26;

enum class CreationTime { kWritten, kNoLocalTime, kFormatFailed };

// Writes the "Log File Created" line. A time that has no local form leaves
// the line out; one that asctime cannot fit into its buffer is an error.
CreationTime writeCreationTime(std::ostream& out, uint64_t epochMicroseconds) {
    const auto seconds = static_cast<time_t>(epochMicroseconds / kMicrosecondsPerSecond);
    struct tm local {};
    if (localtime_r(&seconds, &local) == nullptr) {
        return CreationTime::kNoLocalTime;
    }
    char text[kAsctimeBufferSize] = {};
    if (asctime_r(&local, text) == nullptr) {
        return CreationTime::kFormatFailed;
    }
    // The asctime text ends with the newline that ends the line.
    out << "Log File Created: " << text;
    return CreationTime::kWritten;
}

}  // namespace

void VekProfileLogReader::saveHeader() {
    if (headerSaved) {
        vekLog(kLogDebug, "Header details have been saved already.");
        return;
    }
    const fb::LogHeader* header = messageStream.header();
    if (header == nullptr) {
        // headerSaved stays false, so the next chunk's header is tried.
        vekLog(kLogDebug, "hdr is nullptr");
        return;
    }
    epochTimestamp = header->epochTimestamp();
    steadyClockTimestamp = header->steadyClockTimestamp();
    timeScale = header->timeScale();
    if (const auto* version = header->toolVersion()) {
        toolVersion = version->str();
    }
    if (const auto* name = header->toolName()) {
        toolName = name->str();
        // Exact bytes and length: a near miss is an ordinary tool.
        if (toolName == kLoraAdapterUpdaterToolName) {
            loraAdapterUpdaterMode = true;
        }
    }
    if (const auto* text = header->backend()) {
        backend = text->str();
    }
    headerSaved = true;
}

std::string VekProfileLogReader::printHeader() {
    if (!headerSaved) {
        vekLog(kLogDebug, "Header details unavailable.");
        return std::string();
    }
    std::ostringstream out;
    out.imbue(std::locale::classic());
    out << "Input Log File Location: " << logFilePath << "\n";
    if (writeCreationTime(out, epochTimestamp) == CreationTime::kFormatFailed) {
        return std::string();
    }
    out << "Time Scale: " << timeScale << "\n";
    out << "Epoch Timestamp: " << epochTimestamp
        << " Steady Clock Timestamp: " << steadyClockTimestamp << "\n";
    out << "Generated using: \n";
    out << "vek-profile-viewer: " << VEK_PROFILE_VIEWER_VERSION << "\n";
    if (!toolName.empty() && !toolVersion.empty()) {
        out << toolName << ": " << toolVersion << "\n";
    }
    if (!backend.empty()) {
        out << "Backend: " << backend << "\n";
    }
    return out.str();
}

}  // namespace profiling
}  // namespace vek
