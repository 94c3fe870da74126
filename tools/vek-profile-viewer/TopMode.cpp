#include <algorithm>

#include "Modes.h"

namespace vek {
namespace viewer {

int runTopMode(ViewerSession& session) {
    const ViewerOptions& options = session.options();
    const std::string& logPath = options.logPaths.front();
    profiling::LogFigures figures;
    if (!session.loadOpFigures(logPath, true, figures)) return kExitFailure;
    for (const std::string& name : options.view.graphs) {
        const auto named = [&](const profiling::GraphFigures& graph) {
            return graph.graphName == name;
        };
        if (std::none_of(figures.graphs.begin(), figures.graphs.end(), named)) {
            return ViewerSession::fail("no graph " + name + " in " + logPath);
        }
    }

    profiling::TopViewOptions top;
    top.limit = options.view.limit;
    top.graphs = options.view.graphs;
    top.order = options.view.order;
    top.format = options.view.format;
    const std::string outputPath = options.outputPath.empty() ? "-" : options.outputPath;
    const bool written = session.writeOutputFile(
        outputPath, tools::OutputFile::Mode::kReplace,
        [&](std::ostream& out) { return session.plugin().writeTopView(figures, top, out); },
        "cannot write " + outputPath);
    return written ? kExitSuccess : kExitFailure;
}

}  // namespace viewer
}  // namespace vek
