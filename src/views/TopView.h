// The top view: per graph, its ops ranked, with their share of the graph's
// accelerator time.
#pragma once

#include "VekChrometraceProfilingReader.h"
#include "views/ViewTable.h"

namespace vek {
namespace profiling {

// One row of the view: an op with its place in the order and its shares.
struct TopRow {
    size_t rank = 0;
    const OpFigures* op = nullptr;
    std::optional<double> sharePercent;       // of the graph's accelerator time
    std::optional<double> cumulativePercent;  // this op's and those ranked above it
};

// One inference per NetRun average: 1000000 / the average in microseconds.
std::optional<double> graphInferencesPerSecond(const GraphFigures& graph);

// The ops of a graph in the order, each with its rank and shares (all of
// them: the limit is the table's).
std::vector<TopRow> rankOps(const GraphFigures& graph, TopOrder order);

// The columns of the view and one graph's section of it (the first
// `options.limit` ops in the order; the graph filter is the table's).
std::vector<ColumnInfo> topColumnInfos();
TableSection topSection(const GraphFigures& graph, const TopViewOptions& options);

Table topTable(const LogFigures& figures, const TopViewOptions& options);

}  // namespace profiling
}  // namespace vek
