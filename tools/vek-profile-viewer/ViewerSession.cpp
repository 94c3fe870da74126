#include "ViewerSession.h"

#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <iostream>

#include "LogRefusal.h"
#include "WriteConfinement.h"

namespace vek {
namespace viewer {
namespace {

namespace fs = std::filesystem;

constexpr const char* kProgram = "vek-profile-viewer";
constexpr uint64_t kViewerLogHandle = 1;

// The most detailed diagnostics level shown (--log-level).
int32_t shownLevel = 1;
// Errors the library reported, shown or not (the diff mode loads its two
// logs at once).
std::atomic<int> errorCount{0};

// Shows the library's diagnostics on standard error.
void printDiagnostic(const char* format, uint32_t level, uint64_t, va_list arguments) {
    static const char* const names[] = {"", "error", "warning", "info", "verbose", "debug"};
    if (level <= 1) ++errorCount;
    if (static_cast<int64_t>(level) > shownLevel) return;
    std::fprintf(stderr, "%s: %s: ", kProgram, level <= 5 ? names[level] : "note");
    std::vfprintf(stderr, format, arguments);
    std::fputc('\n', stderr);
}

bool flushStandardOutput() {
    std::cout.flush();
    return std::cout.good() && std::fflush(stdout) == 0;
}

}  // namespace

std::string absolutePath(const std::string& path) {
    if (path.empty() || path == "-") return path;
    std::error_code ignored;
    const fs::path result = fs::absolute(path, ignored);
    return result.empty() ? path : result.string();
}

int ViewerSession::fail(const std::string& message) {
    std::cerr << kProgram << ": " << message << "\n";
    return kExitFailure;
}

void ViewerSession::note(const std::string& message) {
    std::cerr << kProgram << ": " << message << "\n";
}

bool ViewerSession::start() {
    std::string error;
    const std::string pluginPath =
        options_.readerPath.empty() ? installedPluginPath() : options_.readerPath;
    plugin_ = ReaderPlugin::open(pluginPath, error);
    if (!plugin_) {
        fail(error);
        return false;
    }
    // Errors are always received, to be counted, and shown as asked.
    shownLevel = options_.logLevel;
    if (!plugin_->registerLogger(kViewerLogHandle, &printDiagnostic,
                                 options_.logLevel > 1 ? options_.logLevel : 1) &&
        options_.logLevel > 0) {
        note("note: the reader plug-in reports no diagnostics");
    }
    return true;
}

ReaderPlugin::ReaderHandle ViewerSession::loadLog(const std::string& logPath, ReaderKind kind,
                                                  LogContent content) {
    const std::string refusal = tools::logFileRefusal(logPath);
    if (!refusal.empty()) {
        fail(logPath + ": " + refusal);
        return ReaderPlugin::ReaderHandle(nullptr, ReaderPlugin::ReaderDeleter{nullptr});
    }
    const std::string path = absolutePath(logPath);
    const auto level = static_cast<profiling::VisibilityLevel>(options_.visibilityLevel);
    ReaderPlugin::ReaderHandle reader = kind == ReaderKind::Summary
                                            ? plugin_->createSummaryReader(path, level)
                                            : plugin_->createReader(path, level);
    if (!reader) {
        fail("the reader plug-in could not create a reader");
        return reader;
    }
    plugin_->setLoadScope(reader.get(), content == LogContent::SummariesOnly
                                            ? profiling::LoadScope::SummariesOnly
                                            : profiling::LoadScope::Full);
    if (options_.salvage && !plugin_->setSalvageLoad(reader.get(), true)) {
        fail("the reader plug-in cannot salvage a log");
        reader.reset();
        return reader;
    }
    auto* loadable = static_cast<LoadableReader*>(reader.get());
    const bool loaded = loadable->loadLog(options_.saveObjects);
    if (!acceptLoad(reader.get(), logPath, loaded)) reader.reset();
    return reader;
}

bool ViewerSession::loadOpFigures(const std::string& logPath, bool requireOps,
                                  profiling::LogFigures& figures) {
    // The figures come from the summaries alone.
    ReaderPlugin::ReaderHandle reader =
        loadLog(logPath, ReaderKind::Trace, LogContent::SummariesOnly);
    if (!reader) return false;
    if (!plugin_->collectLogFigures(reader.get(), figures)) {
        fail("the reader plug-in gives no op figures for " + logPath);
        return false;
    }
    if (!requireOps) return true;
    for (const profiling::GraphFigures& graph : figures.graphs) {
        if (!graph.ops.empty()) return true;
    }
    fail("no op records in " + logPath);
    return false;
}

bool ViewerSession::acceptLoad(Reader* reader, const std::string& logPath, bool loaded) const {
    using profiling::ChunkProblemKind;
    const profiling::ChunkProblem where = plugin_->loadBreak(reader);
    const std::string place = tools::describeChunkProblem(where);
    const std::string before = tools::chunksAndMessages(where.chunksBefore, where.messagesBefore);
    if (where.kind == ChunkProblemKind::NotAProfileLog) {
        fail(logPath + ": " + where.reason);
        return false;
    }
    const bool broken = where.kind != ChunkProblemKind::None &&
                        where.kind != ChunkProblemKind::TrailingBytes;
    if (!loaded && !broken) {
        fail("cannot read the profile log " + logPath);
        return false;
    }
    if (!loaded || (broken && where.chunksBefore == 0)) {
        fail("cannot read the profile log " + logPath + ": " + place +
             (where.chunksBefore == 0 ? "; no whole chunk before it"
                                      : "; --salvage reports on the " + before + " before it"));
        return false;
    }
    if (where.kind == ChunkProblemKind::TrailingBytes) {
        note("note: " + logPath + ": " + place + "; ignored");
    } else if (where.kind != ChunkProblemKind::None) {
        note("warning: " + logPath + ": " + place + "; the report covers only the " + before +
             " before it");
    }
    return true;
}

bool ViewerSession::writeOutputFile(const std::string& path, tools::OutputFile::Mode mode,
                                    const std::function<bool(std::ostream&)>& write,
                                    const std::string& refusal) {
    std::string error;
    std::unique_ptr<tools::OutputFile> output = tools::OutputFile::open(path, mode, error);
    if (!output) {
        fail(refusal + " (" + error + ")");
        return false;
    }
    const bool written = write(output->stream());
    // A refusal of the library has been reported by it; a failed stream is
    // reported with its cause when the output is finished.
    if (!written && output->stream().good()) {
        fail("no output was written");
        return false;
    }
    if (!output->commit(error) || !written) {
        if (error.empty()) error = "write error";
        fail(refusal + " (" + error + ")");
        return false;
    }
    return true;
}

bool ViewerSession::printToStandardOutput(const std::string& text) {
    std::cout << text;
    if (flushStandardOutput()) return true;
    fail("writing to standard output failed");
    return false;
}

bool ViewerSession::prepareObjectDirectory(Reader* reader, const std::vector<std::string>& outputs) {
    if (!options_.saveObjects) return true;
    const std::string directory = options_.objectDirectory.empty()
                                      ? fs::current_path().string()
                                      : absolutePath(options_.objectDirectory);
    std::error_code failed;
    fs::create_directories(directory, failed);
    if (options_.allowObjectPathsOutsideDir) {
        if (failed || chdir(directory.c_str()) != 0) {
            fail("cannot use the object directory " + directory);
            return false;
        }
        return true;
    }
    if (failed || !plugin_->confineObjectFiles(reader, directory)) {
        fail("cannot confine object files to " + directory +
             " (--allow-object-paths-outside-dir saves them where the log says)");
        return false;
    }
    // The kernel's own fence: from here on this process writes only in the
    // object directory and where its outputs go.
    std::vector<std::string> writable = {directory};
    for (const std::string& output : outputs) {
        if (output.empty() || output == "-") continue;
        std::error_code ignored;
        const bool special = fs::exists(output, ignored) && !fs::is_regular_file(output, ignored);
        writable.push_back(special ? output : fs::path(output).parent_path().string());
    }
    std::string error;
    if (tools::confineWritesTo(writable, error) == tools::Confinement::kFailed) {
        fail(error);
        return false;
    }
    return true;
}

int ViewerSession::libraryErrors() const { return errorCount; }

}  // namespace viewer
}  // namespace vek
