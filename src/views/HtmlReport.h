// The self-contained HTML report of a log: no script, style, font or image
// is fetched; the drawings are inline SVG.
#pragma once

#include <ostream>

#include "VekChrometraceProfilingReader.h"

namespace vek {
namespace profiling {

// Ops in each graph's chart and table; the table notes how many more there are.
constexpr size_t kReportChartOps = 20;
constexpr size_t kReportTableOps = 50;

void writeHtmlPage(const LogFigures& figures, std::ostream& out);

// The drawings of one graph (NetRun chart, top ops chart, timeline): the
// parts of the page that carry its figures.
std::string graphDrawings(const GraphFigures& graph);

}  // namespace profiling
}  // namespace vek
