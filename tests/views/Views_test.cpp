// The views: figures collected from a log, the comparison of two, the tables' formats, the report.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <fstream>
#include <limits>
#include <sstream>

#include "reader/VekProfileLogReader.h"
#include "support/Golden.h"
#include "support/LogWriter.h"
#include "views/DiffView.h"
#include "views/HtmlReport.h"
#include "views/LogComparison.h"
#include "views/LogFigureCollector.h"
#include "views/TableWriters.h"
#include "views/TopView.h"
#include "views/Utf8Text.h"

namespace vek::profiling {
namespace {

using namespace testlog;
using Lines = std::vector<std::string>;

// Named by the file name alone, so that texts do not depend on the build directory.
LogFigures figuresOf(const std::string& dir, const std::string& name) {
    VekProfileLogReader reader(dir + "/" + name, VisibilityLevel(127));
    EXPECT_TRUE(reader.loadLog(false)) << name;
    LogFigures figures = collectFigures(reader);
    figures.logPath = name;
    return figures;
}

MessageSpec execution(uint64_t netRun, uint64_t accelerator, std::vector<EventSpec> ops) {
    return MessageSpec(kExecute).graph(netRun ? "g" : "idle").times(1000, 1000 + netRun).withEvents({
        EventSpec::u64("Accelerator", accelerator).withChildren(std::move(ops)),
        EventSpec::u64("Host overhead", 7),  // holds no ops: not accelerator time
    });
}
EventSpec op(const std::string& name, uint64_t us) { return EventSpec::u64(name, us, 1, 404); }
std::string text(const std::optional<uint64_t>& value) { return value ? std::to_string(*value) : "-"; }

// Every later "conv" joins the first in the average; both take the first "conv" of the slowest and fastest runs.
TEST(LogFigureCollectorTest, ReadsOpsFromTheSummariesWithTheMergesFirstMatchRule) {
    TempDir dir;
    LogWriter log;
    log.chunk()
        .message(execution(100, 90, {op("conv", 40).withChildren({EventSpec::u64("wait", 5, 1, 5001),
                                                                  EventSpec::u64("bg", 30, 1, 5002)}),
                                     op("conv", 20), op("relu", 10)}))
        .message(execution(300, 250, {op("conv", 100), op("conv", 50), op("relu", 60), op("pool", 30)}))
        .message(execution(50, 45, {op("conv", 30), op("relu", 9)}))
        .message(execution(0, 0, {}));
    log.writeTo(dir.file("run.log"));
    Lines lines;
    for (const GraphFigures& g : figuresOf(dir.path(), "run.log").graphs) {
        lines.push_back(g.graphName + ": " + std::to_string(g.executionCount) + " runs " + std::to_string(g.netRunAverageUs) +
                        "/" + text(g.netRunMinimumUs) + "/" + std::to_string(g.netRunMaximumUs) + " accelerator " +
                        std::to_string(g.acceleratorUs));
        for (const OpFigures& o : g.ops) {
            lines.push_back(o.name + " " + std::to_string(o.averageUs) + "/" + text(o.minimumUs) + "/" +
                            text(o.maximumUs) + " wait " + text(o.waitUs) + " bg " + text(o.backgroundUs) + " " +
                            text(o.waitBackgroundUs));
        }
    }
    EXPECT_EQ(lines, (Lines{"g: 3 runs 150/50/300 accelerator 128", "conv 55/30/100 wait 5 bg 30 -",
                            "conv 20/30/100 wait - bg - -", "relu 26/9/60 wait - bg - -", "pool 30/-/30 wait - bg - -",
                            "idle: 1 runs 0/-/0 accelerator 0"}));  // no minimum of runs that all took 0 us
}

GraphFigures graph(const std::string& name, uint64_t netRun, std::vector<std::pair<std::string, uint64_t>> ops = {}) {
    GraphFigures result;
    result.graphName = name;
    result.netRunAverageUs = netRun;
    for (auto& [opName, us] : ops) {
        result.ops.emplace_back().name = opName;
        result.ops.back().averageUs = us;
    }
    return result;
}
LogDiff compare(std::vector<GraphFigures> base, std::vector<GraphFigures> changed) {
    LogFigures baseFigures, changedFigures;
    baseFigures.graphs = std::move(base);
    changedFigures.graphs = std::move(changed);
    return compareFigures(baseFigures, changedFigures);
}
// Graphs match by name, ops by name and occurrence, sorted by absolute delta: "name kind base->new delta
// percent" per graph and, indented, per op. A graph on one side has no percentage and is never slower.
TEST(LogComparisonTest, MatchesByNameAndOccurrenceAndSortsOpsByAbsoluteDelta) {
    const struct {
        const char* what;
        std::vector<GraphFigures> base, changed;
    } cases[] = {
        {"the n-th op of a name matches the n-th", {graph("g", 1, {{"a", 10}, {"a", 20}, {"b", 5}})},
         {graph("g", 1, {{"a", 12}, {"a", 30}, {"a", 7}})}},
        {"equal deltas keep the base order, added ops after", {graph("g", 1, {{"x", 4}, {"y", 4}})},
         {graph("g", 1, {{"z", 4}, {"y", 0}})}},
        {"no percentage from a base of 0", {graph("g", 0, {{"a", 0}})}, {graph("g", 5, {{"a", 9}})}},
        {"graphs on one side", {graph("x", 100, {{"a", 1}}), graph("y", 100)},
         {graph("y", 111), graph("z", 900, {{"b", 2}})}},
    };
    std::string lines;
    const auto line = [&](const std::string& name, const auto& change) {
        const char* kind = change.kind == ChangeKind::Added ? "added" : change.kind == ChangeKind::Removed ? "removed" : "";
        lines += name + " " + kind + " " + std::to_string(change.baseUs) + "->" + std::to_string(change.newUs) + " " +
                 std::to_string(change.deltaUs) +
                 (change.percent ? " " + std::to_string(static_cast<int>(*change.percent)) : "") + "\n";
    };
    for (const auto& c : cases) {
        lines += std::string("== ") + c.what + "\n";
        for (const GraphChange& graph : compare(c.base, c.changed).graphs) {
            line(graph.graphName, graph);
            for (const OpChange& op : graph.ops) line("  " + op.name, op);
        }
    }
    EXPECT_TRUE(matchesGolden(lines, "views/comparison.txt"));
    EXPECT_EQ(graphsSlowerBy(compare(cases[3].base, cases[3].changed), 10.0), Lines{"y"});  // never an added graph
    constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
    EXPECT_EQ(signedDelta(0, kMax), std::numeric_limits<int64_t>::max());
    EXPECT_EQ(signedDelta(kMax, 0), -std::numeric_limits<int64_t>::max());
    EXPECT_EQ(signedDelta(7, 5), -2);  // held within the signed range
}

// Names with the characters that each format must escape or repair.
LogFigures hostileFigures(uint64_t scale) {
    LogFigures figures;
    figures.graphs = {graph("g,\"1\"", 100 * scale)};
    figures.graphs[0].acceleratorUs = 90 * scale;
    uint64_t us = 7;
    for (const char* name : {"plain", "with, comma", "with \"quotes\"", "two\nlines\x01\x7f", "bad \xff utf-8",
                             "caf\xC3\xA9 \xE2\x82\xAC"}) {
        OpFigures& op = figures.graphs[0].ops.emplace_back();
        op.name = name;
        op.averageUs = (us += 11) * scale;
        op.waitUs = us / 3;
    }
    return figures;
}

// RFC 4180 records: quoted fields may hold commas, doubled quotes and line breaks.
std::vector<Lines> csvRecords(const std::string& csv) {
    std::vector<Lines> records(1, Lines(1));
    bool quoted = false;
    for (size_t i = 0; i < csv.size(); ++i) {
        const char c = csv[i];
        if (quoted && c == '"' && i + 1 < csv.size() && csv[i + 1] == '"') records.back().back() += csv[++i];
        else if (c == '"') quoted = !quoted;
        else if (!quoted && c == ',') records.back().emplace_back();
        else if (!quoted && c == '\r' && csv.compare(i, 2, "\r\n") == 0) records.emplace_back(1), ++i;
        else records.back().back() += c;
    }
    records.pop_back();  // after the last CRLF
    return records;
}

// The CSV and the JSON of a table read back to its cells.
void expectReadsBackToTheTable(const Table& table, const std::string& csv, const rapidjson::Document& json) {
    const std::vector<Lines> records = csvRecords(csv);
    size_t record = 1;
    const auto& sections = json[table.sectionsKey.c_str()];
    for (size_t s = 0; s < table.sections.size(); ++s) {
        const auto& rows = sections[static_cast<rapidjson::SizeType>(s)][table.rowsKey.c_str()];
        for (size_t r = 0; r < table.sections[s].rows.size(); ++r, ++record) {
            const auto& object = rows[static_cast<rapidjson::SizeType>(r)];
            for (size_t c = 0; c < table.columns.size(); ++c) {
                const Cell& cell = table.sections[s].rows[r][c];
                const std::string text = validUtf8Text(cellText(cell));
                const auto& value = object[table.columns[c].key.c_str()];
                SCOPED_TRACE(table.view + " row " + std::to_string(record) + " " + table.columns[c].key);
                EXPECT_EQ(records.at(record).at(c + 1), text);
                if (std::holds_alternative<std::monostate>(cell)) EXPECT_TRUE(value.IsNull());
                else if (value.IsString()) EXPECT_EQ(value.GetString(), text);
                else EXPECT_NEAR(value.GetDouble(), std::stod(text), 0.05);
            }
        }
    }
    EXPECT_EQ(records.size(), record);
}

// The text view keeps such names on their line, aligned by width; CSV quotes, JSON escapes, both valid UTF-8.
TEST(TableWritersTest, NamesFromTheLogKeepEachFormatsRules) {
    const Table top = topTable(hostileFigures(1), TopViewOptions{});
    std::ostringstream all;
    writeTextTable(top, all);
    for (const Table& table : {top, diffTable(compareFigures(hostileFigures(1), hostileFigures(3)), DiffViewOptions{})}) {
        std::ostringstream csv, json;
        writeCsvTable(table, csv);
        writeJsonTable(table, json);
        rapidjson::Document parsed;
        ASSERT_FALSE(parsed.Parse(json.str().c_str()).HasParseError()) << json.str();
        expectReadsBackToTheTable(table, csv.str(), parsed);
        all << "\n== " << table.view << " as CSV\n" << csv.str() << "== " << table.view << " as JSON\n" << json.str();
    }
    EXPECT_TRUE(matchesGolden(all.str(), "views/hostile_tables.txt"));
}

TEST(SampleViewsTest, TopAndDiffViewsAndTheReportsDrawings) {
    const LogFigures base = figuresOf(VEK_SAMPLE_DIR, "linting_sample.log");
    const LogDiff changes = compareLogFigures(base, figuresOf(VEK_SAMPLE_DIR, "linting_sample_changed.log"));
    std::ostringstream top, topByName, diff, diffAbove;
    TopViewOptions byName;
    byName.order = TopOrder::Name;
    byName.limit = 3;
    byName.graphs = {"yolo_tiny"};
    DiffViewOptions above;
    above.thresholdPercent = 5.0;
    ASSERT_TRUE(writeTopView(base, TopViewOptions{}, top) && writeTopView(base, byName, topByName));
    ASSERT_TRUE(writeDiffView(changes, DiffViewOptions{}, diff) && writeDiffView(changes, above, diffAbove));
    for (const auto& [text, golden] : {std::pair(top.str(), "top_sample.txt"), {topByName.str(), "top_sample_by_name.txt"},
                                       {diff.str(), "diff_sample.txt"}, {diffAbove.str(), "diff_sample_threshold.txt"},
                                       {graphDrawings(base.graphs.at(0)), "report_sample_drawings.html"}})
        EXPECT_TRUE(matchesGolden(text, std::string("views/") + golden));
}

// A graph of 2,000 ops: more than the chart and the table show.
LogFigures wideFigures() {
    LogFigures figures;
    figures.graphs = {graph("wide", 0)};
    GraphFigures& wide = figures.graphs[0];
    for (size_t i = 0; i < 2000; ++i) {
        OpFigures& op = wide.ops.emplace_back();
        op.name = "op_" + std::to_string(i);
        op.averageUs = 1 + i % 97;
        op.waitUs = i % 3;
        op.backgroundUs = i % 5;
        wide.acceleratorUs += op.averageUs;
    }
    wide.netRunAverageUs = wide.acceleratorUs + 100;
    wide.netRunMinimumUs = wide.netRunAverageUs - 50;
    wide.netRunMaximumUs = wide.netRunAverageUs + 50;
    return figures;
}
std::string page(const LogFigures& figures) {
    std::ostringstream html;
    EXPECT_TRUE(writeHtmlReport(figures, html));
    return html.str();
}
size_t count(const std::string& text, const std::string& part) {
    size_t found = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
    return found;
}

TEST(HtmlReportTest, TextFromTheLogIsEscapedAndWideGraphsStayWhole) {
    LogFigures figures = wideFigures();
    figures.logPath = "/logs/<run>.log";
    figures.graphs[0].graphName = "<script>&\"'\xff";
    figures.graphs[0].ops[0].name = "a</title><b>";
    const std::string html = page(figures);
    EXPECT_NE(html.find("&lt;script&gt;&amp;&quot;&#39;\xEF\xBF\xBD"), std::string::npos);
    EXPECT_EQ(html.find("a</title><b>"), std::string::npos);
    EXPECT_EQ(count(html, "<script>"), 1u);  // the report's own
    // The timeline draws every op; the chart and the table keep the first ones.
    EXPECT_EQ(count(html, "<rect class=\"op c"), 2000u);
    EXPECT_EQ(count(html, "<rect class=\"bar\""), 3u + kReportChartOps);
    EXPECT_EQ(count(html, "<tr><td"), kReportTableOps);
    EXPECT_NE(html.find("1950 more ops are not listed"), std::string::npos);
}

// The page with `addition` before its end, without its content security policy when `dropPolicy`.
std::string broken(std::string html, const std::string& addition, bool dropPolicy) {
    const size_t policy = html.find("<meta http-equiv=\"Content-Security-Policy\"");
    if (dropPolicy && policy != std::string::npos) html.erase(policy, html.find('>', policy) + 1 - policy);
    return html.insert(html.rfind("</body>"), addition);
}

// The sample's and a 2,000-op report open in Chromium without a problem; each broken page shows its problem.
TEST(HtmlReportTest, OpensInABrowserWithoutErrorsOrRequests) {
    if (std::system("command -v node > /dev/null && { [ -n \"$CHROMIUM\" ] || "
                    "command -v chromium || command -v chromium-browser; } > /dev/null") != 0) {
        GTEST_SKIP() << "Chromium or Node.js is not installed (scripts/install-deps.sh --browser)";
    }
    const std::string report = page(figuresOf(VEK_SAMPLE_DIR, "linting_sample.log"));
    const std::string image = "<img src=\"http://192.0.2.1/logo.png\">";
    const std::pair<std::string, const char*> cases[] = {  // the page, its problem
        {report, ""},
        {page(wideFigures()), ""},
        {broken(report, image, true), "network request"},
        {broken(report, image, false), "network request"},
        {broken(report, "<script>console.error('on purpose')</script>", false), "console error"},
        {broken(report, "<script>noSuchFunction()</script>", false), "uncaught exception"},
        {"<!DOCTYPE html><html><head><title>x</title></head><body></body></html>", "blank page"},
    };
    TempDir dir;
    std::string command = "node '" VEK_SOURCE_DIR "/tests/clients/report_check.mjs' '" + dir.path() + "'";
    for (size_t i = 0; i < std::size(cases); ++i) {
        std::ofstream(dir.file(std::to_string(i) + ".html"), std::ios::binary) << cases[i].first;
        command += " '" + dir.file(std::to_string(i) + ".html") + "'";
    }
    ASSERT_EQ(std::system((command + " > '" + dir.file("problems") + "'").c_str()), 0);
    std::istringstream lines(readFile(dir.file("problems")));
    for (const auto& [html, problem] : cases) {
        SCOPED_TRACE(problem);
        std::string problems;
        ASSERT_TRUE(std::getline(lines, problems));
        EXPECT_TRUE(*problem ? problems.find(problem) != std::string::npos : problems.empty()) << problems;
    }
}

}  // namespace
}  // namespace vek::profiling
