// A reader plug-in loaded at run time: the shared library and the entry
// points found in it by name.
#pragma once

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "VekChrometraceProfilingReader.h"

namespace vek {
namespace viewer {

using Reader = profiling::IVekProfileLogReader<profiling::VisibilityLevel>;
using LoadableReader = profiling::IVekLoadableProfileLogReader<profiling::VisibilityLevel>;

class ReaderPlugin {
public:
    // Loads the plug-in; null with `error` set when it or its entry points
    // cannot be found.
    static std::unique_ptr<ReaderPlugin> open(const std::string& path, std::string& error);
    ~ReaderPlugin();
    ReaderPlugin(const ReaderPlugin&) = delete;
    ReaderPlugin& operator=(const ReaderPlugin&) = delete;

    // Readers are destroyed through the plug-in's deleteReader.
    struct ReaderDeleter {
        void (*deleteReader)(Reader*);
        void operator()(Reader* reader) const { deleteReader(reader); }
    };
    using ReaderHandle = std::unique_ptr<Reader, ReaderDeleter>;

    // The plug-in's own reader (createReader).
    ReaderHandle createReader(const std::string& logPath, profiling::VisibilityLevel level) const;
    // The plain base reader with the full text summary; null when the
    // plug-in does not offer one.
    ReaderHandle createSummaryReader(const std::string& logPath,
                                     profiling::VisibilityLevel level) const;
    // Makes `callback` receive the plug-in's diagnostics; false when the
    // plug-in has no logger registration.
    bool registerLogger(uint64_t handle, profiling::LogCallback callback, int32_t maxLevel) const;

    // The plug-in's reports written to streams (see the public header);
    // false, with a message logged, when the plug-in does not offer them.
    bool writeTrace(Reader* reader, std::ostream& trace, std::ostream& summary,
                    profiling::TraceFormat format) const;
    bool writeSummary(Reader* reader, std::ostream& report, std::ostream* csv) const;
    // How many slices the reader's trace holds; empty when the plug-in
    // cannot tell.
    std::optional<uint64_t> countTraceSlices(Reader* reader) const;

    // The op views (see the public header); false, with a message, when the
    // plug-in does not offer them.
    bool collectLogFigures(Reader* reader, profiling::LogFigures& figures) const;
    bool compareLogFigures(const profiling::LogFigures& base, const profiling::LogFigures& changed,
                           profiling::LogDiff& diff) const;
    bool graphsSlowerBy(const profiling::LogDiff& diff, double percent,
                        std::vector<std::string>& graphs) const;
    bool writeTopView(const profiling::LogFigures& figures,
                      const profiling::TopViewOptions& options, std::ostream& out) const;
    bool writeDiffView(const profiling::LogDiff& diff, const profiling::DiffViewOptions& options,
                       std::ostream& out) const;
    bool writeHtmlReport(const profiling::LogFigures& figures, std::ostream& out) const;

    // Cut and corrupt logs (see the public header); false, and kind None,
    // when the plug-in does not offer them.
    bool setSalvageLoad(Reader* reader, bool salvage) const;
    profiling::ChunkProblem loadBreak(Reader* reader) const;

    // Object files confined to a directory; false when the plug-in does not
    // offer it or the directory cannot be opened.
    bool confineObjectFiles(Reader* reader, const std::string& directory) const;

    // Chooses how much of the log the reader's loadLog keeps; a plug-in
    // without the choice always keeps everything, which reports the same.
    void setLoadScope(Reader* reader, profiling::LoadScope scope) const;

private:
    ReaderPlugin() = default;

    void* library_ = nullptr;
    Reader* (*createReader_)(const std::string&, profiling::VisibilityLevel) = nullptr;
    void (*deleteReader_)(Reader*) = nullptr;
    Reader* (*createSummaryReader_)(const std::string&, profiling::VisibilityLevel) = nullptr;
    void (*registerLogger_)(uint64_t, profiling::LogCallback, int32_t) = nullptr;
    decltype(&profiling::writeTrace) writeTrace_ = nullptr;
    decltype(&profiling::writeSummary) writeSummary_ = nullptr;
    decltype(&profiling::countTraceSlices) countTraceSlices_ = nullptr;
    decltype(&profiling::collectLogFigures) collectLogFigures_ = nullptr;
    decltype(&profiling::compareLogFigures) compareLogFigures_ = nullptr;
    decltype(&profiling::graphsSlowerBy) graphsSlowerBy_ = nullptr;
    decltype(&profiling::writeTopView) writeTopView_ = nullptr;
    decltype(&profiling::writeDiffView) writeDiffView_ = nullptr;
    decltype(&profiling::writeHtmlReport) writeHtmlReport_ = nullptr;

    decltype(&profiling::setSalvageLoad) setSalvageLoad_ = nullptr;
    decltype(&profiling::loadBreak) loadBreak_ = nullptr;
    decltype(&profiling::confineObjectFiles) confineObjectFiles_ = nullptr;
    decltype(&profiling::setLoadScope) setLoadScope_ = nullptr;
};

// The plug-in this tool was built and installed with.
std::string installedPluginPath();

}  // namespace viewer
}  // namespace vek
