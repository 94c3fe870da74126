#include "views/DiffView.h"

#include <cmath>

namespace vek {
namespace profiling {
namespace {

Cell kindCell(ChangeKind kind) {
    switch (kind) {
        case ChangeKind::Added: return std::string("added");
        case ChangeKind::Removed: return std::string("removed");
        case ChangeKind::Matched: break;
    }
    return Cell();
}

Cell percentCell(const std::optional<double>& percent) {
    return percent ? Cell(Decimal{*percent, 1}) : Cell();
}

// The time of the side an op or graph is on; none on the side it is missing from.
Cell baseCell(ChangeKind kind, uint64_t value) {
    return kind == ChangeKind::Added ? Cell() : Cell(value);
}
Cell newCell(ChangeKind kind, uint64_t value) {
    return kind == ChangeKind::Removed ? Cell() : Cell(value);
}

const std::vector<Column<OpChange>>& diffColumns() {
    static const std::vector<Column<OpChange>> columns = {
        {{"op", "op", "", Align::Left}, [](const OpChange& op) { return Cell(op.name); }},
        {{"status", "", "", Align::Left, false, ""},
         [](const OpChange& op) { return kindCell(op.kind); }},
        {{"base_us", "base", "us"}, [](const OpChange& op) { return baseCell(op.kind, op.baseUs); }},
        {{"new_us", "new", "us"}, [](const OpChange& op) { return newCell(op.kind, op.newUs); }},
        {{"delta_us", "delta", "us", Align::Right, true},
         [](const OpChange& op) { return Cell(op.deltaUs); }},
        {{"change_pct", "change", "%", Align::Right, true},
         [](const OpChange& op) { return percentCell(op.percent); }},
    };
    return columns;
}

std::vector<Fact> graphFacts(const GraphChange& graph, size_t hidden) {
    return {
        {"graph", "Graph ", graph.graphName},
        {"status", " (", kindCell(graph.kind), "", ")", 0, true},
        {"netrun_base_us", "  NetRun avg ", baseCell(graph.kind, graph.baseUs), " us", "", 1},
        {"netrun_new_us", " -> ", newCell(graph.kind, graph.newUs), " us", "", 1},
        {"netrun_delta_us", ": ", graph.deltaUs, " us", "", 1, false, true},
        {"netrun_change_pct", " (", percentCell(graph.percent), " %", ")", 1, false, true},
        {"ops_below_threshold", "  ... ", uint64_t{hidden}, " more changed less", "", -1, true},
    };
}

}  // namespace

bool passesThreshold(const OpChange& op, double thresholdPercent) {
    if (op.kind != ChangeKind::Matched) return true;
    if (!op.percent) return op.deltaUs != 0 || thresholdPercent <= 0.0;
    return std::fabs(*op.percent) >= thresholdPercent;
}

Table diffTable(const LogDiff& diff, const DiffViewOptions& options) {
    const std::vector<Column<OpChange>>& columns = diffColumns();
    Table table = graphOpsTable(
        "diff",
        {
            {"base", "Base: ", diff.baseLogPath},
            {"new", "New:  ", diff.newLogPath, "", "", 1},
            {"threshold_pct", "Ops that changed by less than ",
             percentCell(options.thresholdPercent), " %", " are left out", 2, true},
        },
        columnInfos(columns));
    for (const GraphChange& graph : diff.graphs) {
        TableSection section;
        size_t hidden = 0;
        for (const OpChange& op : graph.ops) {
            if (passesThreshold(op, options.thresholdPercent)) {
                section.rows.push_back(rowOf(columns, op));
            } else {
                ++hidden;
            }
        }
        section.facts = graphFacts(graph, hidden);
        if (graph.ops.empty()) section.emptyText = "no op records";
        table.sections.push_back(std::move(section));
    }
    return table;
}

}  // namespace profiling
}  // namespace vek
