// The report's drawings, as inline SVG: horizontal bar charts and the
// timeline of a graph's average execution.
#pragma once

#include <string>
#include <vector>

#include "VekChrometraceProfilingReader.h"

namespace vek {
namespace profiling {

struct Bar {
    std::string label;      // left of the bar (shortened when long)
    uint64_t value = 0;     // the bar's length is proportional to it
    std::string valueText;  // right of the bar
    std::string title;      // shown on hover
};

// Bars one under the other, the longest spanning the drawing's bar area.
std::string barChart(const std::vector<Bar>& bars, const std::string& description);

// The ops one after another on a foreground lane (a grey slice for a wait,
// then the op), the work beside them on a background lane, to scale, as the
// trace lays them; every slice has a hover title.
std::string timelineChart(const GraphFigures& graph);

}  // namespace profiling
}  // namespace vek
