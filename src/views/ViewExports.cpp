// The op views' functions of the public header.
#include <ostream>

#include "VekChrometraceProfilingReader.h"
#include "reader/VekProfileLogReader.h"
#include "views/DiffView.h"
#include "views/HtmlReport.h"
#include "views/LogComparison.h"
#include "views/LogFigureCollector.h"
#include "views/TableWriters.h"
#include "views/TopView.h"

namespace vek {
namespace profiling {

bool collectLogFigures(IVekProfileLogReader<VisibilityLevel>* reader, LogFigures& figures) {
    const auto* ours = dynamic_cast<const VekProfileLogReader*>(reader);
    if (ours == nullptr) return false;
    figures = collectFigures(*ours);
    return true;
}

LogDiff compareLogFigures(const LogFigures& base, const LogFigures& changed) {
    return compareFigures(base, changed);
}

std::vector<std::string> graphsSlowerBy(const LogDiff& diff, double percent) {
    std::vector<std::string> slower;
    for (const GraphChange& graph : diff.graphs) {
        if (graph.kind == ChangeKind::Matched && graph.percent && *graph.percent > percent) {
            slower.push_back(graph.graphName);
        }
    }
    return slower;
}

bool writeTopView(const LogFigures& figures, const TopViewOptions& options, std::ostream& out) {
    return writeTable(topTable(figures, options), options.format, out);
}

bool writeDiffView(const LogDiff& diff, const DiffViewOptions& options, std::ostream& out) {
    return writeTable(diffTable(diff, options), options.format, out);
}

bool writeHtmlReport(const LogFigures& figures, std::ostream& out) {
    writeHtmlPage(figures, out);
    out.flush();
    return static_cast<bool>(out);
}

}  // namespace profiling
}  // namespace vek
