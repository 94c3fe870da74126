#include "views/HtmlReport.h"

#include <time.h>

#include <cstdio>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

#include "VekVersion.h"
#include "views/HtmlText.h"
#include "views/SvgCharts.h"
#include "views/TableWriters.h"
#include "views/TopView.h"

namespace vek {
namespace profiling {
namespace {

// Nothing may be fetched: the policy refuses every source but the page's own
// inline style and script.
constexpr const char* kPageStart = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'">
<meta name="viewport" content="width=device-width, initial-scale=1">
)";

constexpr const char* kStyle = R"(<style>
body { font: 14px/1.45 system-ui, sans-serif; color: #1d232b; background: #fff; max-width: 1040px; margin: 24px auto; padding: 0 16px; }
h1 { font-size: 22px; margin: 0 0 2px; }
h2 { font-size: 18px; margin: 32px 0 6px; padding-bottom: 4px; border-bottom: 1px solid #d6dbe1; }
h3 { font-size: 14px; margin: 18px 0 4px; color: #4a5562; }
dl.meta { display: grid; grid-template-columns: max-content 1fr; gap: 2px 16px; margin: 10px 0; }
dt { color: #5b6673; }
dd { margin: 0; }
.note { color: #5b6673; font-size: 13px; margin: 4px 0; }
svg { display: block; max-width: 100%; height: auto; }
svg text { font: 12px system-ui, sans-serif; fill: #1d232b; }
svg text.tick, svg text.lane { font-size: 11px; fill: #5b6673; }
svg line.tick { stroke: #98a1ab; }
svg .bar { fill: #3b7dd8; }
svg .wait { fill: #a3a9b1; }
svg .bg { fill: #9dbde3; }
svg .c0 { fill: #d9534f; } svg .c1 { fill: #f0ad4e; } svg .c2 { fill: #5cb85c; }
svg .c3 { fill: #5bc0de; } svg .c4 { fill: #8e6bbf; } svg .c5 { fill: #3b7dd8; }
svg rect:hover { stroke: #1d232b; stroke-width: 1; }
table { border-collapse: collapse; margin: 6px 0; font-size: 13px; }
th, td { padding: 3px 10px; border-bottom: 1px solid #e4e8ec; text-align: left; }
th { background: #f3f5f7; cursor: pointer; user-select: none; }
.num { text-align: right; font-variant-numeric: tabular-nums; }
.unit { color: #6b7682; font-weight: normal; }
footer { margin-top: 36px; padding-top: 8px; border-top: 1px solid #d6dbe1; color: #5b6673; font-size: 12px; }
</style>
)";

// Sorts a table by the column whose heading is clicked; again for the other way.
constexpr const char* kScript = R"(<script>
for (const table of document.querySelectorAll("table.sortable")) {
  const heads = table.tHead.rows[0].cells;
  for (let column = 0; column < heads.length; column++) {
    heads[column].addEventListener("click", () => {
      const numeric = heads[column].classList.contains("num");
      const down = heads[column].dataset.order !== "down";
      const value = (row) => row.cells[column].dataset.v;
      const rows = Array.from(table.tBodies[0].rows).sort((a, b) => {
        const order = numeric ? (Number(value(a) || -1) - Number(value(b) || -1))
                              : value(a).localeCompare(value(b));
        return down ? -order : order;
      });
      heads[column].dataset.order = down ? "down" : "up";
      for (const row of rows) table.tBodies[0].appendChild(row);
    });
  }
}
</script>
)";

std::string us(uint64_t value) { return std::to_string(value) + " us"; }

std::string fixed(double value, int places) {
    char text[400];
    std::snprintf(text, sizeof text, "%.*f", places, value);
    return text;
}

std::string fileName(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The creation time in UTC, so that the report reads the same everywhere.
std::string utcTime(uint64_t epochMicroseconds) {
    const auto seconds = static_cast<time_t>(epochMicroseconds / 1000000);
    struct tm utc {};
    char text[64] = {};
    if (gmtime_r(&seconds, &utc) == nullptr ||
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &utc) == 0) {
        return "-";
    }
    return text;
}

void definition(std::ostream& out, const char* term, const std::string& value) {
    out << "<dt>" << term << "</dt><dd>" << htmlEscaped(value) << "</dd>\n";
}

void writeHeader(const LogFigures& figures, std::ostream& out) {
    out << "<header>\n<h1>Profile report</h1>\n<p class=\"note\">"
        << htmlEscaped(fileName(figures.logPath)) << "</p>\n";
    const LogHeaderFigures& header = figures.header;
    if (!header.present) {
        out << "<p class=\"note\">The log has no header.</p>\n</header>\n";
        return;
    }
    out << "<dl class=\"meta\">\n";
    definition(out, "Tool", header.toolName + (header.toolVersion.empty() ? "" : " ") +
                                header.toolVersion);
    definition(out, "Backend", header.backend);
    definition(out, "Created", utcTime(header.epochTimestampUs));
    std::ostringstream scale;
    scale.imbue(std::locale::classic());
    scale << header.timeScale;
    definition(out, "Time scale", scale.str());
    if (figures.inferencesPerSecond) {
        definition(out, "Whole run", fixed(*figures.inferencesPerSecond, 1) + " inferences/s");
    }
    out << "</dl>\n</header>\n";
}

std::string netRunChart(const GraphFigures& graph) {
    std::vector<Bar> bars{{"average", graph.netRunAverageUs, us(graph.netRunAverageUs),
                           "NetRun average: " + us(graph.netRunAverageUs)}};
    if (graph.netRunMinimumUs) {
        bars.push_back({"minimum", *graph.netRunMinimumUs, us(*graph.netRunMinimumUs),
                        "NetRun minimum: " + us(*graph.netRunMinimumUs)});
    }
    bars.push_back({"maximum", graph.netRunMaximumUs, us(graph.netRunMaximumUs),
                    "NetRun maximum: " + us(graph.netRunMaximumUs)});
    return barChart(bars, "NetRun of " + graph.graphName);
}

std::string topOpsChart(const GraphFigures& graph) {
    std::vector<Bar> bars;
    for (const TopRow& row : rankOps(graph, TopOrder::Average)) {
        if (bars.size() == kReportChartOps) break;
        const std::string share = row.sharePercent ? fixed(*row.sharePercent, 1) + " %" : "-";
        bars.push_back({row.op->name, row.op->averageUs, us(row.op->averageUs) + ", " + share,
                        row.op->name + ": " + us(row.op->averageUs) + ", " + share +
                            " of the accelerator time"});
    }
    return barChart(bars, "Top ops of " + graph.graphName);
}

void writeGraph(const GraphFigures& graph, size_t index, std::ostream& out) {
    out << "<section class=\"graph\" id=\"graph-" << index << "\">\n<h2>Graph "
        << htmlEscaped(graph.graphName) << "</h2>\n<p class=\"note\">" << graph.executionCount
        << " executions, accelerator " << us(graph.acceleratorUs);
    if (const std::optional<double> rate = graphInferencesPerSecond(graph)) {
        out << ", " << fixed(*rate, 1) << " inferences/s (one per NetRun average)";
    }
    out << "</p>\n";
    if (graph.ops.empty()) {
        out << "<h3>NetRun</h3>\n" << netRunChart(graph) << "<p class=\"note\">No op records.</p>\n";
    } else {
        out << graphDrawings(graph);
        TopViewOptions options;
        options.limit = kReportTableOps;
        out << "<h3>Ops</h3>\n";
        writeHtmlTable(topColumnInfos(), topSection(graph, options), out);
        if (graph.ops.size() > kReportTableOps) {
            out << "<p class=\"note\">" << graph.ops.size() - kReportTableOps
                << " more ops are not listed; the timeline above draws every op.</p>\n";
        }
    }
    out << "</section>\n";
}

Cell optionalUs(const std::optional<uint64_t>& value) { return optionalCell(value); }

void writePhases(const LogFigures& figures, std::ostream& out) {
    static const std::vector<Column<PhaseFigures>> columns = {
        {{"phase", "phase", "", Align::Left}, [](const PhaseFigures& p) { return Cell(p.phase); }},
        {{"graph", "graph", "", Align::Left, false, ""},
         [](const PhaseFigures& p) { return p.graphName.empty() ? Cell() : Cell(p.graphName); }},
        {{"time_us", "time", "us"}, [](const PhaseFigures& p) { return Cell(p.durationUs); }},
        {{"min_us", "min", "us", Align::Right, false, ""},
         [](const PhaseFigures& p) { return optionalUs(p.minimumUs); }},
        {{"max_us", "max", "us", Align::Right, false, ""},
         [](const PhaseFigures& p) { return optionalUs(p.maximumUs); }},
    };
    // The minimum and maximum columns only when a phase has them.
    bool ranges = false;
    for (const PhaseFigures& phase : figures.phases) ranges = ranges || phase.maximumUs;
    const std::vector<Column<PhaseFigures>> shown(columns.begin(),
                                                  ranges ? columns.end() : columns.begin() + 3);
    TableSection section;
    for (const PhaseFigures& phase : figures.phases) section.rows.push_back(rowOf(shown, phase));
    out << "<section>\n<h2>Phases</h2>\n";
    writeHtmlTable(columnInfos(shown), section, out);
    if (ranges) {
        out << "<p class=\"note\">Apply binary section: the average time, with the minimum and "
               "maximum.</p>\n";
    }
    out << "</section>\n";
}

}  // namespace

std::string graphDrawings(const GraphFigures& graph) {
    std::string drawings = "<h3>NetRun</h3>\n" + netRunChart(graph);
    drawings += "<h3>Top ops by average time</h3>\n" + topOpsChart(graph);
    if (graph.ops.size() > kReportChartOps) {
        drawings += "<p class=\"note\">The first " + std::to_string(kReportChartOps) + " of " +
                    std::to_string(graph.ops.size()) + " ops.</p>\n";
    }
    drawings += "<h3>Timeline of the average execution</h3>\n" + timelineChart(graph);
    return drawings;
}

void writeHtmlPage(const LogFigures& figures, std::ostream& out) {
    out << kPageStart << "<title>Profile report: " << htmlEscaped(fileName(figures.logPath))
        << "</title>\n"
        << kStyle << "</head>\n<body>\n";
    writeHeader(figures, out);
    for (size_t i = 0; i < figures.graphs.size(); ++i) writeGraph(figures.graphs[i], i, out);
    writePhases(figures, out);
    out << "<footer>Log " << htmlEscaped(figures.logPath) << ", " << figures.logSizeBytes
        << " bytes. Written by vek-profile-viewer " << VEK_PROFILE_VIEWER_VERSION << ".</footer>\n"
        << kScript << "</body>\n</html>\n";
}

}  // namespace profiling
}  // namespace vek
