#include <cstdio>
#include <thread>

#include "Modes.h"

namespace vek {
namespace viewer {

int runDiffMode(ViewerSession& session) {
    const ViewerOptions& options = session.options();
    const std::string& basePath = options.logPaths[0];
    const std::string& newPath = options.logPaths[1];
    // The two logs load side by side: readers share nothing.
    profiling::LogFigures base;
    profiling::LogFigures changed;
    bool baseLoaded = false;
    std::thread baseLoad([&] { baseLoaded = session.loadOpFigures(basePath, true, base); });
    const bool newLoaded = session.loadOpFigures(newPath, true, changed);
    baseLoad.join();
    if (!baseLoaded || !newLoaded) return kExitFailure;

    profiling::LogDiff diff;
    if (!session.plugin().compareLogFigures(base, changed, diff)) return kExitFailure;
    profiling::DiffViewOptions view;
    view.thresholdPercent = options.view.thresholdPercent;
    view.format = options.view.format;
    const std::string outputPath = options.outputPath.empty() ? "-" : options.outputPath;
    const bool written = session.writeOutputFile(
        outputPath, tools::OutputFile::Mode::kReplace,
        [&](std::ostream& out) { return session.plugin().writeDiffView(diff, view, out); },
        "cannot write " + outputPath);
    if (!written) return kExitFailure;

    if (!options.view.failAbovePercent) return kExitSuccess;
    std::vector<std::string> slower;
    if (!session.plugin().graphsSlowerBy(diff, *options.view.failAbovePercent, slower)) {
        return kExitFailure;
    }
    for (const std::string& graph : slower) {
        char limit[64];
        std::snprintf(limit, sizeof limit, "%g", *options.view.failAbovePercent);
        ViewerSession::note("graph " + graph + ": NetRun average slower by more than " + limit +
                            " %");
    }
    return slower.empty() ? kExitSuccess : kExitSlower;
}

}  // namespace viewer
}  // namespace vek
