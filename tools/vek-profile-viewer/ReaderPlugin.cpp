#include "ReaderPlugin.h"

#include <dlfcn.h>

#include <cstdio>

namespace vek {
namespace viewer {
namespace {

// The symbol behind a function of the public header as this tool was linked
// with it: the plug-in's C++ operations are found under the same (mangled)
// names in any build of the plug-in.
std::string symbolNameOf(void* function) {
    Dl_info info{};
    if (dladdr(function, &info) == 0 || info.dli_sname == nullptr) return std::string();
    return info.dli_sname;
}

template <typename Function>
Function lookUp(void* library, const std::string& name) {
    if (name.empty()) return nullptr;
    return reinterpret_cast<Function>(dlsym(library, name.c_str()));
}

// The plug-in's own copy of a C++ function of the public header.
template <typename Function>
Function lookUpDeclared(void* library, Function declared) {
    return lookUp<Function>(library, symbolNameOf(reinterpret_cast<void*>(declared)));
}

}  // namespace

std::unique_ptr<ReaderPlugin> ReaderPlugin::open(const std::string& path, std::string& error) {
    std::unique_ptr<ReaderPlugin> plugin(new ReaderPlugin());
    plugin->library_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (plugin->library_ == nullptr) {
        const char* reason = dlerror();
        error = "cannot load reader plug-in " + path + (reason ? std::string(": ") + reason : "");
        return nullptr;
    }
    using CreateFn = Reader* (*)(const std::string&, profiling::VisibilityLevel);
    using DeleteFn = void (*)(Reader*);
    plugin->createReader_ = lookUp<CreateFn>(plugin->library_, "createReader");
    plugin->deleteReader_ = lookUp<DeleteFn>(plugin->library_, "deleteReader");
    if (plugin->createReader_ == nullptr || plugin->deleteReader_ == nullptr) {
        error = "reader plug-in " + path + " has no createReader and deleteReader";
        return nullptr;
    }
    plugin->createSummaryReader_ =
        lookUpDeclared(plugin->library_, &profiling::createSummaryReader);
    plugin->registerLogger_ = lookUpDeclared(plugin->library_, &profiling::registerLogger);
    plugin->writeTrace_ = lookUpDeclared(plugin->library_, &profiling::writeTrace);
    plugin->writeSummary_ = lookUpDeclared(plugin->library_, &profiling::writeSummary);
    plugin->countTraceSlices_ = lookUpDeclared(plugin->library_, &profiling::countTraceSlices);
    plugin->collectLogFigures_ = lookUpDeclared(plugin->library_, &profiling::collectLogFigures);
    plugin->compareLogFigures_ = lookUpDeclared(plugin->library_, &profiling::compareLogFigures);
    plugin->graphsSlowerBy_ = lookUpDeclared(plugin->library_, &profiling::graphsSlowerBy);
    plugin->writeTopView_ = lookUpDeclared(plugin->library_, &profiling::writeTopView);
    plugin->writeDiffView_ = lookUpDeclared(plugin->library_, &profiling::writeDiffView);
    plugin->writeHtmlReport_ = lookUpDeclared(plugin->library_, &profiling::writeHtmlReport);
    plugin->setSalvageLoad_ = lookUpDeclared(plugin->library_, &profiling::setSalvageLoad);
    plugin->loadBreak_ = lookUpDeclared(plugin->library_, &profiling::loadBreak);
    plugin->confineObjectFiles_ =
        lookUpDeclared(plugin->library_, &profiling::confineObjectFiles);
    plugin->setLoadScope_ = lookUpDeclared(plugin->library_, &profiling::setLoadScope);
    return plugin;
}

ReaderPlugin::~ReaderPlugin() {
    if (library_ != nullptr) dlclose(library_);
}

ReaderPlugin::ReaderHandle ReaderPlugin::createReader(const std::string& logPath,
                                                      profiling::VisibilityLevel level) const {
    return ReaderHandle(createReader_(logPath, level), ReaderDeleter{deleteReader_});
}

ReaderPlugin::ReaderHandle ReaderPlugin::createSummaryReader(
    const std::string& logPath, profiling::VisibilityLevel level) const {
    Reader* reader = createSummaryReader_ ? createSummaryReader_(logPath, level) : nullptr;
    return ReaderHandle(reader, ReaderDeleter{deleteReader_});
}

bool ReaderPlugin::registerLogger(uint64_t handle, profiling::LogCallback callback,
                                  int32_t maxLevel) const {
    if (registerLogger_ == nullptr) return false;
    registerLogger_(handle, callback, maxLevel);
    return true;
}

namespace {

bool missingOperation(const char* name) {
    std::fprintf(stderr, "vek-profile-viewer: the reader plug-in has no %s\n", name);
    return false;
}

}  // namespace

bool ReaderPlugin::writeTrace(Reader* reader, std::ostream& trace, std::ostream& summary,
                              profiling::TraceFormat format) const {
    if (writeTrace_ == nullptr) return missingOperation("writeTrace");
    return writeTrace_(reader, trace, summary, format);
}

bool ReaderPlugin::writeSummary(Reader* reader, std::ostream& report, std::ostream* csv) const {
    if (writeSummary_ == nullptr) return missingOperation("writeSummary");
    return writeSummary_(reader, report, csv);
}

std::optional<uint64_t> ReaderPlugin::countTraceSlices(Reader* reader) const {
    if (countTraceSlices_ == nullptr) return std::nullopt;
    return countTraceSlices_(reader);
}

bool ReaderPlugin::collectLogFigures(Reader* reader, profiling::LogFigures& figures) const {
    if (collectLogFigures_ == nullptr) return missingOperation("collectLogFigures");
    return collectLogFigures_(reader, figures);
}

bool ReaderPlugin::compareLogFigures(const profiling::LogFigures& base,
                                     const profiling::LogFigures& changed,
                                     profiling::LogDiff& diff) const {
    if (compareLogFigures_ == nullptr) return missingOperation("compareLogFigures");
    diff = compareLogFigures_(base, changed);
    return true;
}

bool ReaderPlugin::graphsSlowerBy(const profiling::LogDiff& diff, double percent,
                                  std::vector<std::string>& graphs) const {
    if (graphsSlowerBy_ == nullptr) return missingOperation("graphsSlowerBy");
    graphs = graphsSlowerBy_(diff, percent);
    return true;
}

bool ReaderPlugin::writeTopView(const profiling::LogFigures& figures,
                                const profiling::TopViewOptions& options, std::ostream& out) const {
    if (writeTopView_ == nullptr) return missingOperation("writeTopView");
    return writeTopView_(figures, options, out);
}

bool ReaderPlugin::writeDiffView(const profiling::LogDiff& diff,
                                 const profiling::DiffViewOptions& options,
                                 std::ostream& out) const {
    if (writeDiffView_ == nullptr) return missingOperation("writeDiffView");
    return writeDiffView_(diff, options, out);
}

bool ReaderPlugin::writeHtmlReport(const profiling::LogFigures& figures, std::ostream& out) const {
    if (writeHtmlReport_ == nullptr) return missingOperation("writeHtmlReport");
    return writeHtmlReport_(figures, out);
}

bool ReaderPlugin::setSalvageLoad(Reader* reader, bool salvage) const {
    return setSalvageLoad_ != nullptr && setSalvageLoad_(reader, salvage);
}

profiling::ChunkProblem ReaderPlugin::loadBreak(Reader* reader) const {
    return loadBreak_ != nullptr ? loadBreak_(reader) : profiling::ChunkProblem{};
}

bool ReaderPlugin::confineObjectFiles(Reader* reader, const std::string& directory) const {
    return confineObjectFiles_ != nullptr && confineObjectFiles_(reader, directory);
}

void ReaderPlugin::setLoadScope(Reader* reader, profiling::LoadScope scope) const {
    if (setLoadScope_ != nullptr) setLoadScope_(reader, scope);
}

std::string installedPluginPath() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&::createReader), &info) == 0 ||
        info.dli_fname == nullptr) {
        return "libVekChrometraceProfilingReader.so";
    }
    return info.dli_fname;
}

}  // namespace viewer
}  // namespace vek
