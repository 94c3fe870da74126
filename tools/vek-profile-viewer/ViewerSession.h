// What every mode of vek-profile-viewer shares: the reader plug-in and its
// diagnostics, loading a log, the output files and standard output, and how
// a failure is reported.
#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "OutputFile.h"
#include "ReaderPlugin.h"
#include "ViewerOptions.h"

namespace vek {
namespace viewer {

constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

class ViewerSession {
public:
    explicit ViewerSession(const ViewerOptions& options) : options_(options) {}

    // Loads the reader plug-in and routes its diagnostics to standard error;
    // false (after saying why) when it cannot be loaded.
    bool start();

    enum class ReaderKind {
        Trace,    // the plug-in's own reader (createReader)
        Summary,  // the plain reader with the full text summary
    };
    // What a mode reads of the log: every call (the CSV export lists them),
    // or only the per-graph summaries, which load in memory that does not
    // grow with the log.
    enum class LogContent { EveryCall, SummariesOnly };
    // A reader with `logPath` loaded; null after saying why.
    ReaderPlugin::ReaderHandle loadLog(const std::string& logPath, ReaderKind kind,
                                       LogContent content);

    // The op figures of a log (collected by the plug-in from the loaded
    // summaries); false after saying why, also, with `requireOps`, when the
    // log has no op records.
    bool loadOpFigures(const std::string& logPath, bool requireOps,
                       profiling::LogFigures& figures);

    // Writes one output file through `write`, which returns false when it
    // refused (the library has said why); the file appears only when all of
    // it was written. False after saying why; `refusal` starts the message
    // when the file cannot be written at all.
    bool writeOutputFile(const std::string& path, tools::OutputFile::Mode mode,
                         const std::function<bool(std::ostream&)>& write,
                         const std::string& refusal);

    // Writes text to standard output; false after saying why.
    bool printToStandardOutput(const std::string& text);

    // Readies the object directory (--save-objects=DIR) for `reader`: object
    // files are confined to it, by the reader and by the kernel, unless
    // --allow-object-paths-outside-dir makes relative names land in it as
    // the current directory. `outputs` are the files the mode will write.
    // False after saying why.
    bool prepareObjectDirectory(Reader* reader, const std::vector<std::string>& outputs);

    // How many errors the library has reported so far: an object file that
    // could not be written is reported only that way.
    int libraryErrors() const;

    // Prints "vek-profile-viewer: MESSAGE" on standard error; returns kExitFailure.
    static int fail(const std::string& message);
    // Prints a note on standard error.
    static void note(const std::string& message);

    const ViewerOptions& options() const { return options_; }
    const ReaderPlugin& plugin() const { return *plugin_; }

private:
    // Says where a log breaks, refusing it unless the load salvaged it;
    // false when the log is refused.
    bool acceptLoad(Reader* reader, const std::string& logPath, bool loaded) const;

    const ViewerOptions& options_;
    std::unique_ptr<ReaderPlugin> plugin_;
};

// A path as the user named it, made absolute (the object directory changes
// the current directory); empty stays empty.
std::string absolutePath(const std::string& path);

}  // namespace viewer
}  // namespace vek
