#include "views/TopView.h"

#include <algorithm>
#include <numeric>

namespace vek {
namespace profiling {
namespace {

const char* orderName(TopOrder order) {
    switch (order) {
        case TopOrder::Average: return "avg";
        case TopOrder::Maximum: return "max";
        case TopOrder::Wait: return "wait";
        case TopOrder::Name: return "name";
    }
    return "";
}

// Whether `a` ranks above `b`; equal ops keep their execution order.
bool ranksAbove(const OpFigures& a, const OpFigures& b, TopOrder order) {
    switch (order) {
        case TopOrder::Average: return a.averageUs > b.averageUs;
        case TopOrder::Maximum: return a.maximumUs.value_or(0) > b.maximumUs.value_or(0);
        case TopOrder::Wait: return a.waitUs.value_or(0) > b.waitUs.value_or(0);
        case TopOrder::Name: return a.name < b.name;
    }
    return false;
}

std::optional<double> shareOf(uint64_t part, uint64_t whole) {
    if (whole == 0) return std::nullopt;
    return static_cast<double>(part) / static_cast<double>(whole) * 100.0;
}

Cell decimalCell(const std::optional<double>& value) {
    return value ? Cell(Decimal{*value, 1}) : Cell();
}

const std::vector<Column<TopRow>>& topColumns() {
    static const std::vector<Column<TopRow>> columns = {
        {{"rank", "#", "", Align::Right}, [](const TopRow& row) { return Cell(uint64_t{row.rank}); }},
        {{"op", "op", "", Align::Left}, [](const TopRow& row) { return Cell(row.op->name); }},
        {{"avg_us", "avg", "us"}, [](const TopRow& row) { return Cell(row.op->averageUs); }},
        // The op in the fastest and in the slowest execution: the summaries
        // keep no op's own minimum or maximum.
        {{"min_run_us", "min run", "us"},
         [](const TopRow& row) { return optionalCell(row.op->minimumUs); }},
        {{"max_run_us", "max run", "us"},
         [](const TopRow& row) { return optionalCell(row.op->maximumUs); }},
        {{"share_pct", "share", "%"}, [](const TopRow& row) { return decimalCell(row.sharePercent); }},
        {{"cumulative_pct", "cum", "%"},
         [](const TopRow& row) { return decimalCell(row.cumulativePercent); }},
        {{"wait_us", "wait", "us"}, [](const TopRow& row) { return optionalCell(row.op->waitUs); }},
        {{"background_us", "bg", "us"},
         [](const TopRow& row) { return optionalCell(row.op->backgroundUs); }},
    };
    return columns;
}

std::vector<Fact> graphFacts(const GraphFigures& graph, size_t opsNotShown) {
    return {
        {"graph", "Graph ", graph.graphName, "", ":"},
        {"executions", " ", graph.executionCount, " executions"},
        {"accelerator_us", ", accelerator ", graph.acceleratorUs, " us"},
        {"netrun_avg_us", "  NetRun avg ", graph.netRunAverageUs, " us", "", 1},
        {"netrun_min_us", ", min ", optionalCell(graph.netRunMinimumUs), " us", "", 1},
        {"netrun_max_us", ", max ", graph.netRunMaximumUs, " us", "", 1},
        {"inferences_per_s", ", ", decimalCell(graphInferencesPerSecond(graph)), " inferences/s", "",
         1},
        {"ops_not_shown", "  ... ", uint64_t{opsNotShown}, " more not shown", "", -1, true},
    };
}

bool isShown(const GraphFigures& graph, const std::vector<std::string>& graphs) {
    return graphs.empty() || std::find(graphs.begin(), graphs.end(), graph.graphName) != graphs.end();
}

}  // namespace

std::optional<double> graphInferencesPerSecond(const GraphFigures& graph) {
    if (graph.netRunAverageUs == 0) return std::nullopt;
    return 1000000.0 / static_cast<double>(graph.netRunAverageUs);
}

std::vector<TopRow> rankOps(const GraphFigures& graph, TopOrder order) {
    std::vector<const OpFigures*> ops;
    ops.reserve(graph.ops.size());
    for (const OpFigures& op : graph.ops) ops.push_back(&op);
    std::stable_sort(ops.begin(), ops.end(), [order](const OpFigures* a, const OpFigures* b) {
        return ranksAbove(*a, *b, order);
    });
    std::vector<TopRow> rows;
    rows.reserve(ops.size());
    uint64_t cumulative = 0;
    for (const OpFigures* op : ops) {
        cumulative += op->averageUs;
        rows.push_back(TopRow{rows.size() + 1, op, shareOf(op->averageUs, graph.acceleratorUs),
                              shareOf(cumulative, graph.acceleratorUs)});
    }
    return rows;
}

std::vector<ColumnInfo> topColumnInfos() { return columnInfos(topColumns()); }

TableSection topSection(const GraphFigures& graph, const TopViewOptions& options) {
    const std::vector<Column<TopRow>>& columns = topColumns();
    const std::vector<TopRow> rows = rankOps(graph, options.order);
    const size_t shown = options.limit == 0 ? rows.size() : std::min(rows.size(), options.limit);
    TableSection section;
    section.facts = graphFacts(graph, rows.size() - shown);
    section.emptyText = "no op records";
    for (size_t i = 0; i < shown; ++i) section.rows.push_back(rowOf(columns, rows[i]));
    return section;
}

Table topTable(const LogFigures& figures, const TopViewOptions& options) {
    Table table = graphOpsTable(
        "top",
        {
            {"log", "Log: ", figures.logPath},
            {"order", "Ops by ", std::string(orderName(options.order)), "", "", 1},
            {"limit", ", first ", uint64_t{options.limit}, " per graph", "", 1, true},
        },
        topColumnInfos());
    for (const GraphFigures& graph : figures.graphs) {
        if (isShown(graph, options.graphs)) table.sections.push_back(topSection(graph, options));
    }
    return table;
}

}  // namespace profiling
}  // namespace vek
