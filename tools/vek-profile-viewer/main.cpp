// vek-profile-viewer: loads a reader plug-in and turns a profile log into a
// Chrome trace, a text summary with a CSV export, or the log header.
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "ReaderPlugin.h"
#include "VekVersion.h"
#include "ViewerOptions.h"

namespace {

using namespace vek::viewer;
namespace fs = std::filesystem;

constexpr const char* kProgram = "vek-profile-viewer";
constexpr uint64_t kViewerLogHandle = 1;

// The most detailed diagnostics level shown (--log-level).
int32_t shownLevel = 1;
// Errors the library reported. An object file that could not be saved is
// reported only this way: the report goes on without it.
int errorCount = 0;

// Shows the library's diagnostics on standard error.
void printDiagnostic(const char* format, uint32_t level, uint64_t, va_list arguments) {
    static const char* const names[] = {"", "error", "warning", "info", "verbose", "debug"};
    if (level <= 1) ++errorCount;
    if (static_cast<int64_t>(level) > shownLevel) return;
    std::fprintf(stderr, "%s: %s: ", kProgram, level <= 5 ? names[level] : "note");
    std::vfprintf(stderr, format, arguments);
    std::fputc('\n', stderr);
}

int fail(const std::string& message) {
    std::cerr << kProgram << ": " << message << "\n";
    return 1;
}

std::string absolute(const std::string& path) {
    if (path.empty()) return path;
    std::error_code ignored;
    const fs::path result = fs::absolute(path, ignored);
    return result.empty() ? path : result.string();
}

// Standard output must have reached its destination in full.
bool flushStandardOutput() {
    std::cout.flush();
    return std::cout.good() && std::fflush(stdout) == 0;
}

int runViewer(const ViewerOptions& options) {
    std::string error;
    const std::string pluginPath =
        options.readerPath.empty() ? installedPluginPath() : options.readerPath;
    std::unique_ptr<ReaderPlugin> plugin = ReaderPlugin::open(pluginPath, error);
    if (!plugin) return fail(error);
    // Errors are always received, to be counted, and shown as asked.
    shownLevel = options.logLevel;
    if (!plugin->registerLogger(kViewerLogHandle, &printDiagnostic,
                                options.logLevel > 1 ? options.logLevel : 1) &&
        options.logLevel > 0) {
        std::cerr << kProgram << ": note: the reader plug-in reports no diagnostics\n";
    }

    const std::string inputPath = absolute(options.inputPath);
    const auto level = static_cast<vek::profiling::VisibilityLevel>(options.visibilityLevel);
    ReaderPlugin::ReaderHandle reader = options.mode == OutputMode::Summary
                                            ? plugin->createSummaryReader(inputPath, level)
                                            : plugin->createReader(inputPath, level);
    if (!reader) return fail("the reader plug-in could not create a reader");
    auto* loadable = static_cast<LoadableReader*>(reader.get());
    if (!loadable->loadLog(options.saveObjects)) {
        return fail("cannot read the profile log " + options.inputPath);
    }

    if (options.mode == OutputMode::Header) {
        const std::string header = reader->printHeader();
        if (header.empty()) return fail("the log has no header");
        std::cout << header;
        return flushStandardOutput() ? 0 : fail("writing to standard output failed");
    }

    std::string outputPath = options.outputPath;
    if (options.mode == OutputMode::Trace && outputPath.empty()) {
        outputPath = defaultTracePath(options.inputPath);
    }
    outputPath = absolute(outputPath);
    if (options.saveObjects && !options.objectDirectory.empty()) {
        std::error_code failed;
        fs::create_directories(options.objectDirectory, failed);
        if (failed || chdir(options.objectDirectory.c_str()) != 0) {
            return fail("cannot use the object directory " + options.objectDirectory);
        }
    }

    bool written = false;
    const int errorsBefore = errorCount;
    try {
        written = reader->writeOutput(outputPath);
    } catch (const std::exception& exception) {
        return fail("writing " + outputPath + " failed: " + exception.what());
    }
    if (!written) return fail("no output was written");
    if (!flushStandardOutput()) return fail("writing to standard output failed");
    if (errorCount != errorsBefore) return fail("some of the output could not be written");
    if (options.mode == OutputMode::Trace) {
        std::cerr << kProgram << ": trace written to " << outputPath
                  << " (open it in Perfetto or chrome://tracing)\n";
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const ParseResult parsed = parseViewerOptions(arguments);
    if (!parsed.options) {
        std::cerr << kProgram << ": " << parsed.error << "\n"
                  << "Try '" << kProgram << " --help' for more information.\n";
        return 2;
    }
    if (parsed.options->showHelp) {
        std::cout << viewerUsage();
        return flushStandardOutput() ? 0 : 1;
    }
    if (parsed.options->showVersion) {
        std::cout << kProgram << " " << VEK_PROFILE_VIEWER_VERSION << "\n";
        return flushStandardOutput() ? 0 : 1;
    }
    try {
        return runViewer(*parsed.options);
    } catch (const std::exception& exception) {
        return fail(exception.what());
    }
}
