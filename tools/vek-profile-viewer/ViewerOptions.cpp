#include "ViewerOptions.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>

#include "HelpFormatter.h"
#include "VekVersion.h"

namespace vek {
namespace viewer {
namespace {

using tools::HelpFormatter;
using tools::kHelpWidth;
using tools::wrapText;

constexpr const char* kProgram = "vek-profile-viewer";

struct ModeEntry {
    const char* name;
    OutputMode mode;
    size_t logCount;          // how many logs the mode reads
    const char* description;  // what it prints, in a user's words
};

const std::vector<ModeEntry>& modeTable() {
    static const std::vector<ModeEntry> table = {
        {"trace", OutputMode::Trace, 1,
         "a timeline of each graph's averaged ops, end to end with their waits and the work "
         "beside them, for trace viewers (-o, default LOG.trace.json); prints the init, "
         "compose, finalize, de-init and average execution times"},
        {"summary", OutputMode::Summary, 1,
         "every figure as text: init, compose, finalize and de-init times, each graph's "
         "average, fastest and slowest execution with the backend's events, inferences per "
         "second, library load; -o appends every call and event as CSV rows"},
        {"header", OutputMode::Header, 1, "which tool wrote the log, when, and for which backend"},
        {"top", OutputMode::Top, 1,
         "per graph, the ops ranked by time, with their share of the accelerator time"},
        {"diff", OutputMode::Diff, 2,
         "BASE NEW: per graph, the NetRun average before and after and the ops that changed"},
        {"html", OutputMode::Html, 1,
         "one HTML file that needs nothing else: NetRun and top-op charts, a timeline of "
         "each graph's average execution, op and phase tables (-o, default LOG.html)"},
    };
    return table;
}

const std::vector<std::pair<std::string, int32_t>>& logLevelNames() {
    static const std::vector<std::pair<std::string, int32_t>> names = {
        {"none", 0}, {"error", 1}, {"warning", 2}, {"info", 3}, {"verbose", 4}, {"debug", 5},
        {"0", 0},    {"1", 1},     {"2", 2},       {"3", 3},    {"4", 4},       {"5", 5}};
    return names;
}

// The program's description: what it does and what each mode prints.
std::string description() {
    std::string text =
        "Turns a binary profile log into a trace, reports and views.\n\nModes (-m, --mode):";
    constexpr size_t kNameColumn = 10;
    for (const ModeEntry& entry : modeTable()) {
        text += "\n  " + std::string(entry.name) +
                std::string(kNameColumn - std::strlen(entry.name), ' ') + entry.description;
    }
    return wrapText(text, kHelpWidth, kNameColumn);
}

const char* const kFooter =
    "Exit status: 0 success, 1 the log or an output was refused (the reason is shown\n"
    "on standard error), 2 usage error, 3 diff --fail-above: a graph got slower.\n"
    "Outputs appear whole or not at all; a name ending in .gz is written\n"
    "gzip-compressed.\n"
    "\n"
    "What every figure means: docs/reading-the-reports.md";

// The command line's grammar; `options` receives the values.
// Values that CLI11 parses before they become options.
struct RawValues {
    std::string mode = "trace";
    std::string inputPath;
    std::string traceFormat = "exact";
    int visibility = 127;
    std::string viewFormat = "text";
    std::string order = "avg";
};

// The options of the op views and the modes they apply to.
struct ViewOption {
    const char* name;
    std::vector<OutputMode> modes;
};

const std::vector<ViewOption>& viewOptionModes() {
    static const std::vector<ViewOption> table = {
        {"--format", {OutputMode::Top, OutputMode::Diff}},
        {"--limit", {OutputMode::Top}},
        {"--graph", {OutputMode::Top}},
        {"--sort", {OutputMode::Top}},
        {"--threshold", {OutputMode::Diff}},
        {"--fail-above", {OutputMode::Diff}},
    };
    return table;
}

std::unique_ptr<CLI::App> makeApp(ViewerOptions& options, RawValues& raw) {
    auto app = std::make_unique<CLI::App>(description(), kProgram);
    app->formatter(std::make_shared<HelpFormatter>());
    app->set_help_flag("-h,--help", "show this help");
    app->set_version_flag("-V,--version", std::string(kProgram) + " " + VEK_PROFILE_VIEWER_VERSION,
                          "show the version");
    app->footer(kFooter);

    std::vector<std::string> modeNames;
    for (const ModeEntry& entry : modeTable()) modeNames.push_back(entry.name);
    app->add_option("-m,--mode", raw.mode, "what to make of the log (see Modes; default trace)")
        ->check(CLI::IsMember(modeNames))
        ->option_text("MODE");
    app->add_option("LOG", options.logPaths, "the profile log (diff: BASE NEW)");
    app->add_option("-i,--input", raw.inputPath, "the profile log (instead of the argument)")
        ->option_text("LOG");
    app->add_option("-o,--output", options.outputPath,
                    "the output file; trace: default LOG.trace.json in the current directory; "
                    "summary: the CSV file to append to (default none); top, diff: default "
                    "standard output; html: default LOG.html")
        ->option_text("PATH");
    app->add_option("--trace-format", raw.traceFormat,
                    "exact: the trace as the plug-in writes it (default); portable: numeric "
                    "ids and valid UTF-8, for every trace viewer")
        ->check(CLI::IsMember({"exact", "portable"}))
        ->option_text("FORMAT");
    app->add_flag("--save-objects{}", options.objectDirectory,
                  "also save the object events as files in DIR (default: the current "
                  "directory); never overwrites a file")
        ->option_text("[=DIR]");
    app->add_flag("--allow-object-paths-outside-dir", options.allowObjectPathsOutsideDir,
                  "save object files under the names the log gives even when they are "
                  "absolute, contain .. or lead out of DIR through a link (default: refused)");
    app->add_flag("--salvage", options.salvage,
                  "on a log cut short or with a corrupt chunk, report on the whole chunks "
                  "before the break (default: refuse the log and say where it breaks)");
    app->add_option("-v,--visibility", raw.visibility,
                    "skip messages whose visibility is >= N (-128..127; default 127: keep all)")
        ->check(CLI::Range(-128, 127))
        ->option_text("N");
    std::map<std::string, int32_t> levels(logLevelNames().begin(), logLevelNames().end());
    app->add_option("-l,--log-level", options.logLevel,
                    "library diagnostics on standard error: none, error, warning, info, verbose, "
                    "debug or 0..5 (default: error)")
        ->transform(CLI::CheckedTransformer(levels))
        ->option_text("LEVEL");
    ViewOptions& view = options.view;
    app->add_option("--format", raw.viewFormat, "top, diff: text (default), csv or json")
        ->check(CLI::IsMember({"text", "csv", "json"}))
        ->option_text("FORMAT");
    app->add_option("--limit", view.limit, "top: ops per graph (default 20; 0: all)")
        ->check(CLI::NonNegativeNumber)
        ->option_text("N");
    app->add_option("--graph", view.graphs, "top: only this graph (repeatable; default: all)")
        ->allow_extra_args(false)
        ->option_text("NAME");
    app->add_option("--sort", raw.order, "top: rank ops by avg (default), max, wait or name")
        ->check(CLI::IsMember({"avg", "max", "wait", "name"}))
        ->option_text("KEY");
    app->add_option("--threshold", view.thresholdPercent,
                    "diff: leave out ops that changed by less than PCT percent")
        ->check(CLI::NonNegativeNumber)
        ->option_text("PCT");
    app->add_option("--fail-above", view.failAbovePercent,
                    "diff: exit with status 3 when a graph's NetRun average got slower by "
                    "more than PCT percent")
        ->check(CLI::NonNegativeNumber)
        ->option_text("PCT");
    app->add_option("--reader", options.readerPath,
                    "the reader plug-in to load (default: the one installed with this tool)")
        ->option_text("PATH");
    return app;
}

const ModeEntry& modeNamed(const std::string& name) {
    for (const ModeEntry& entry : modeTable()) {
        if (name == entry.name) return entry;
    }
    return modeTable().front();
}

ParseResult usageError(const std::string& message) {
    ParseResult result;
    result.text = message;
    result.exitStatus = 2;
    return result;
}

}  // namespace

ParseResult parseViewerOptions(const std::vector<std::string>& arguments) {
    ViewerOptions options;
    RawValues raw;
    const auto app = makeApp(options, raw);
    // CLI11 takes the arguments last first.
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    try {
        app->parse(reversed);
    } catch (const CLI::CallForHelp&) {
        ParseResult result;
        result.text = app->help();
        return result;
    } catch (const CLI::CallForVersion&) {
        ParseResult result;
        result.text = app->version() + "\n";
        return result;
    } catch (const CLI::ParseError& error) {
        return usageError(error.what());
    }

    const ModeEntry& entry = modeNamed(raw.mode);
    options.mode = entry.mode;
    options.traceLayout =
        raw.traceFormat == "portable" ? TraceLayout::Portable : TraceLayout::Exact;
    options.visibilityLevel = static_cast<int8_t>(raw.visibility);
    options.saveObjects = app->count("--save-objects") > 0;
    options.view.format = raw.viewFormat == "csv"    ? profiling::ViewFormat::Csv
                          : raw.viewFormat == "json" ? profiling::ViewFormat::Json
                                                     : profiling::ViewFormat::Text;
    options.view.order = raw.order == "max"    ? profiling::TopOrder::Maximum
                         : raw.order == "wait" ? profiling::TopOrder::Wait
                         : raw.order == "name" ? profiling::TopOrder::Name
                                               : profiling::TopOrder::Average;
    for (const ViewOption& option : viewOptionModes()) {
        if (app->count(option.name) == 0) continue;
        if (std::find(option.modes.begin(), option.modes.end(), entry.mode) == option.modes.end()) {
            return usageError(std::string(option.name) + " does not apply to mode " + raw.mode);
        }
    }
    if (!raw.inputPath.empty()) options.logPaths.insert(options.logPaths.begin(), raw.inputPath);
    if (options.logPaths.size() < entry.logCount) {
        return usageError(entry.logCount == 1 ? "no input log given"
                                              : "mode " + raw.mode + " needs " +
                                                    std::to_string(entry.logCount) + " logs");
    }
    if (options.logPaths.size() > entry.logCount) {
        return usageError("unexpected argument " + options.logPaths[entry.logCount]);
    }
    ParseResult result;
    result.options = options;
    return result;
}

std::string viewerUsage() {
    ViewerOptions options;
    RawValues raw;
    return makeApp(options, raw)->help();
}

std::string defaultTracePath(const std::string& logPath) {
    return std::filesystem::path(logPath).stem().string() + ".trace.json";
}

std::string defaultReportPath(const std::string& logPath) {
    return std::filesystem::path(logPath).stem().string() + ".html";
}

}  // namespace viewer
}  // namespace vek
