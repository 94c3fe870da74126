// Command-line options of vek-profile-viewer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "VekChrometraceProfilingReader.h"

namespace vek {
namespace viewer {

enum class OutputMode {
    Trace,    // Chrome trace file plus the short summary (the plug-in's own output)
    Summary,  // full text summary, CSV appended to the output file when one is named
    Header,   // the log header alone
    Top,      // per graph, the ops that cost the most
    Diff,     // per graph, what changed between two logs
    Html,     // one self-contained HTML report with charts
};

enum class TraceLayout {
    Exact,     // the plug-in's own trace file, byte for byte
    Portable,  // numeric ids, valid UTF-8, metadata: opens in every viewer
};

// Options of the op views.
struct ViewOptions {
    profiling::ViewFormat format = profiling::ViewFormat::Text;
    size_t limit = 20;                // top: ops per graph, 0 all
    std::vector<std::string> graphs;  // top: the graphs shown, empty all
    profiling::TopOrder order = profiling::TopOrder::Average;
    double thresholdPercent = 0.0;    // diff: smaller changes are left out
    std::optional<double> failAbovePercent;  // diff: a slower NetRun average fails
};

struct ViewerOptions {
    std::vector<std::string> logPaths;  // the logs the mode reads, in order
    std::string outputPath;             // empty: the mode's default
    OutputMode mode = OutputMode::Trace;
    TraceLayout traceLayout = TraceLayout::Exact;
    int8_t visibilityLevel = 127;  // messages below this visibility are kept
    int32_t logLevel = 1;          // library diagnostics shown: 0 none .. 5 debug
    bool saveObjects = false;
    std::string objectDirectory;  // empty: the current directory
    // Object file names that leave the object directory are saved as the log
    // gives them instead of refused.
    bool allowObjectPathsOutsideDir = false;
    // A log cut short or with a corrupt chunk is reported on up to there.
    bool salvage = false;
    std::string readerPath;       // empty: the plug-in installed beside the tool
    ViewOptions view;
};

// What the command line asks for: options to run with, or a text to print
// and an exit status (help, version, usage error).
struct ParseResult {
    std::optional<ViewerOptions> options;
    std::string text;     // help or version on standard output, or the usage error
    int exitStatus = 0;   // when options is empty: 0 (help, version) or 2 (usage error)
};

ParseResult parseViewerOptions(const std::vector<std::string>& arguments);

std::string viewerUsage();

// The trace file written when no output path is given: the log's name with
// ".trace.json", in the current directory.
std::string defaultTracePath(const std::string& logPath);
// The same for the HTML report: the log's name with ".html".
std::string defaultReportPath(const std::string& logPath);

}  // namespace viewer
}  // namespace vek
