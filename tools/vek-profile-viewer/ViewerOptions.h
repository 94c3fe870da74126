// Command-line options of vek-profile-viewer.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vek {
namespace viewer {

enum class OutputMode {
    Trace,    // Chrome trace file plus the short summary (the plug-in's own output)
    Summary,  // full text summary, CSV appended to the output file when one is named
    Header,   // the log header alone
};

struct ViewerOptions {
    std::string inputPath;
    std::string outputPath;  // empty: the mode's default
    OutputMode mode = OutputMode::Trace;
    int8_t visibilityLevel = 127;  // messages below this visibility are kept
    int32_t logLevel = 1;          // library diagnostics shown: 0 none .. 5 debug
    bool saveObjects = false;
    std::string objectDirectory;  // empty: the current directory
    std::string readerPath;       // empty: the plug-in installed beside the tool
    bool showHelp = false;
    bool showVersion = false;
};

struct ParseResult {
    std::optional<ViewerOptions> options;
    std::string error;  // set when options is empty
};

ParseResult parseViewerOptions(const std::vector<std::string>& arguments);

std::string viewerUsage();

// The trace file written when no output path is given: the log's name with
// ".trace.json", in the current directory.
std::string defaultTracePath(const std::string& inputPath);

}  // namespace viewer
}  // namespace vek
