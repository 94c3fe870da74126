#include "views/HtmlReport.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <utility>
#include <sstream>
#include <string>
#include <vector>

#include "support/Golden.h"
#include "support/LogWriter.h"
#include "views/SampleFigures.h"

namespace vek {
namespace profiling {
namespace {

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

GraphFigures wideGraph(size_t ops) {
    GraphFigures graph;
    graph.graphName = "wide";
    for (size_t i = 0; i < ops; ++i) {
        OpFigures op;
        op.name = "op_" + std::to_string(i);
        op.averageUs = 1 + i % 97;
        op.waitUs = i % 3;
        op.backgroundUs = i % 5;
        graph.acceleratorUs += op.averageUs;
        graph.ops.push_back(op);
    }
    graph.netRunAverageUs = graph.acceleratorUs + 100;
    graph.netRunMinimumUs = graph.netRunAverageUs - 50;
    graph.netRunMaximumUs = graph.netRunAverageUs + 50;
    return graph;
}

#ifdef VEK_SAMPLE_DIR
TEST(HtmlReportTest, DrawingsCarryTheSummarysFiguresToScale) {
    const LogFigures sample = testviews::sampleFigures("linting_sample.log");
    const GraphFigures& graph = sample.graphs.at(0);
    const std::string drawings = graphDrawings(graph);
    EXPECT_TRUE(testlog::matchesGolden(drawings, "views/report_sample_drawings.html"));

    // Every bar of the two charts: its length over its value is the chart's
    // one scale, and its label is the figure itself.
    const std::regex bar(R"re(<g><title>[^<]*</title>.*?width="([0-9.]+)".*?class="value"[^>]*>(\d+) us)re");
    std::vector<std::pair<double, uint64_t>> bars;
    for (auto m = std::sregex_iterator(drawings.begin(), drawings.end(), bar);
         m != std::sregex_iterator(); ++m) {
        bars.emplace_back(std::stod((*m)[1]), std::stoull((*m)[2]));
    }
    ASSERT_EQ(bars.size(), 3 + graph.ops.size());
    const std::vector<uint64_t> netRun{graph.netRunAverageUs, *graph.netRunMinimumUs,
                                       graph.netRunMaximumUs};
    for (size_t i = 0; i < bars.size(); ++i) {
        SCOPED_TRACE(i);
        const bool first = i < 3;
        const auto& longest = first ? bars[2] : bars[3];  // the maximum; the top op
        EXPECT_NEAR(bars[i].first / static_cast<double>(bars[i].second),
                    longest.first / static_cast<double>(longest.second), 0.01);
        if (first) {
            EXPECT_EQ(bars[i].second, netRun[i]);
        }
    }
    EXPECT_EQ(bars[3].second, 492u);  // Conv2d_2, the costliest op of the average
}
#endif

TEST(HtmlReportTest, TextFromTheLogIsEscapedAndWideGraphsStayWhole) {
    LogFigures figures;
    figures.logPath = "/logs/<run>.log";
    figures.graphs = {wideGraph(2000)};
    figures.graphs[0].graphName = "<script>&\"'\xff";
    figures.graphs[0].ops[0].name = "a</title><b>";
    const std::string html = page(figures);
    EXPECT_EQ(html.find("<script>&"), std::string::npos);
    EXPECT_NE(html.find("&lt;script&gt;&amp;&quot;&#39;\xEF\xBF\xBD"), std::string::npos);
    EXPECT_EQ(html.find("a</title><b>"), std::string::npos);
    EXPECT_EQ(count(html, "<script>"), 1u);  // the report's own

    // The timeline draws every op; the chart and the table keep the first ones.
    EXPECT_EQ(count(html, "<rect class=\"op c"), 2000u);
    EXPECT_EQ(count(html, "<rect class=\"bar\""), 3u + kReportChartOps);
    EXPECT_EQ(count(html, "<tr><td"), kReportTableOps);
    EXPECT_NE(html.find("1950 more ops are not listed"), std::string::npos);
}

// The page with `addition` just before its end, and without its content
// security policy when `dropPolicy`.
std::string broken(std::string html, const std::string& addition, bool dropPolicy) {
    if (dropPolicy) {
        const size_t policy = html.find("<meta http-equiv=\"Content-Security-Policy\"");
        if (policy != std::string::npos) html.erase(policy, html.find('>', policy) + 1 - policy);
    }
    return html.insert(html.rfind("</body>"), addition);
}

// Opens the pages in headless Chromium (tests/clients/report_check.mjs) and
// gives the problems it saw on each, in order, and the load times.
struct BrowserResults {
    std::vector<std::string> problems;
    std::vector<int> loadMs;
};

BrowserResults openInBrowser(const testlog::TempDir& dir, const std::vector<std::string>& pages) {
    std::string command = "node '" + std::string(VEK_SOURCE_DIR) +
                          "/tests/clients/report_check.mjs' '" + dir.path() + "'";
    for (size_t i = 0; i < pages.size(); ++i) {
        const std::string path = dir.file("page" + std::to_string(i) + ".html");
        std::ofstream(path, std::ios::binary) << pages[i];
        command += " '" + path + "'";
    }
    EXPECT_EQ(std::system((command + " > '" + dir.file("results") + "'").c_str()), 0);
    BrowserResults results;
    std::istringstream lines(testlog::readFile(dir.file("results")));
    for (std::string line; std::getline(lines, line);) {
        rapidjson::Document result;
        result.Parse(line.c_str());
        if (result.HasParseError()) continue;
        std::string problems;
        for (const auto& problem : result["problems"].GetArray()) {
            problems += std::string(problem.GetString()) + "\n";
        }
        results.problems.push_back(problems);
        results.loadMs.push_back(result["loadMs"].GetInt());
    }
    return results;
}

TEST(ReportInBrowserTest, OpensWithoutErrorsOrRequestsAndTheCheckCatchesBrokenPages) {
    if (std::system("command -v node > /dev/null && { [ -n \"$CHROMIUM\" ] || "
                    "command -v chromium || command -v chromium-browser; } > /dev/null") != 0) {
        GTEST_SKIP() << "Chromium or Node.js is not installed (scripts/install-deps.sh --browser)";
    }
    LogFigures sample;
#ifdef VEK_SAMPLE_DIR
    sample = testviews::sampleFigures("linting_sample.log");
#endif
    LogFigures wide;
    wide.graphs = {wideGraph(2000)};
    const std::string report = page(sample);
    const std::string image = "<img src=\"http://192.0.2.1/logo.png\">";
    const struct {
        const char* what;
        std::string html;
        const char* problem;  // empty: none at all
    } cases[] = {
        {"the sample report", report, ""},
        {"a report of 2,000 ops", page(wide), ""},
        {"an image from the network", broken(report, image, true), "network request"},
        {"an image the policy stops", broken(report, image, false), "network request"},
        {"a console error", broken(report, "<script>console.error('on purpose')</script>", false),
         "console error"},
        {"a script error", broken(report, "<script>noSuchFunction()</script>", false),
         "uncaught exception"},
        {"an empty page", "<!DOCTYPE html><html><head><title>x</title></head><body></body></html>",
         "blank page"},
    };
    std::vector<std::string> pages;
    for (const auto& c : cases) pages.push_back(c.html);
    testlog::TempDir dir;
    const BrowserResults results = openInBrowser(dir, pages);
    ASSERT_EQ(results.problems.size(), pages.size());
    for (size_t i = 0; i < pages.size(); ++i) {
        SCOPED_TRACE(cases[i].what);
        if (*cases[i].problem == '\0') {
            EXPECT_EQ(results.problems[i], "");
        } else {
            EXPECT_NE(results.problems[i].find(cases[i].problem), std::string::npos)
                << results.problems[i];
        }
    }
    RecordProperty("wide_report_load_ms", results.loadMs[1]);
}

}  // namespace
}  // namespace profiling
}  // namespace vek
