#include "views/LogComparison.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace vek {
namespace profiling {
namespace {

GraphFigures graph(const std::string& name, uint64_t netRun,
                   std::vector<std::pair<std::string, uint64_t>> ops = {}) {
    GraphFigures result;
    result.graphName = name;
    result.netRunAverageUs = netRun;
    for (auto& [opName, us] : ops) {
        OpFigures figures;
        figures.name = opName;
        figures.averageUs = us;
        result.ops.push_back(figures);
    }
    return result;
}

const char* kindName(ChangeKind kind) {
    return kind == ChangeKind::Added ? "added" : kind == ChangeKind::Removed ? "removed" : "";
}

// "name kind base->new delta percent" per op, in the diff's order.
std::vector<std::string> opLines(const GraphChange& change) {
    std::vector<std::string> lines;
    for (const OpChange& op : change.ops) {
        lines.push_back(op.name + " " + kindName(op.kind) + " " + std::to_string(op.baseUs) +
                        "->" + std::to_string(op.newUs) + " " + std::to_string(op.deltaUs) +
                        (op.percent ? " " + std::to_string(static_cast<int>(*op.percent)) : ""));
    }
    return lines;
}

TEST(LogComparisonTest, OpsMatchByNameAndOccurrenceAndSortByAbsoluteDelta) {
    using Lines = std::vector<std::string>;
    const struct {
        const char* what;
        GraphFigures base, changed;
        Lines expected;
    } cases[] = {
        {"the n-th op of a name matches the n-th",
         graph("g", 1, {{"a", 10}, {"a", 20}, {"b", 5}}),
         graph("g", 1, {{"a", 12}, {"a", 30}, {"a", 7}}),
         {"a  20->30 10 50", "a added 0->7 7", "b removed 5->0 -5 -100", "a  10->12 2 20"}},
        {"equal deltas keep the base order, added ops after",
         graph("g", 1, {{"x", 4}, {"y", 4}}), graph("g", 1, {{"z", 4}, {"y", 0}}),
         {"x removed 4->0 -4 -100", "y  4->0 -4 -100", "z added 0->4 4"}},
        {"no percentage from a base of 0", graph("g", 1, {{"a", 0}}), graph("g", 1, {{"a", 9}}),
         {"a  0->9 9"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        LogFigures base, changed;
        base.graphs = {c.base};
        changed.graphs = {c.changed};
        const LogDiff diff = compareFigures(base, changed);
        ASSERT_EQ(diff.graphs.size(), 1u);
        EXPECT_EQ(opLines(diff.graphs[0]), c.expected);
    }
}

TEST(LogComparisonTest, GraphsMissingOnOneSideAreAddedOrRemovedAndNeverSlower) {
    LogFigures base, changed;
    base.graphs = {graph("x", 100, {{"a", 1}}), graph("y", 100)};
    changed.graphs = {graph("y", 111), graph("z", 900, {{"b", 2}})};
    const LogDiff diff = compareFigures(base, changed);
    ASSERT_EQ(diff.graphs.size(), 3u);
    EXPECT_EQ(diff.graphs[0].graphName + kindName(diff.graphs[0].kind), "xremoved");
    EXPECT_EQ(opLines(diff.graphs[0]), std::vector<std::string>{"a removed 1->0 -1 -100"});
    EXPECT_EQ(diff.graphs[1].graphName + kindName(diff.graphs[1].kind), "y");
    EXPECT_EQ(diff.graphs[2].graphName + kindName(diff.graphs[2].kind), "zadded");
    EXPECT_FALSE(diff.graphs[2].percent);

    // Slower by more than the percentage: 11 % is not more than 11 %.
    EXPECT_EQ(graphsSlowerBy(diff, 10.0), std::vector<std::string>{"y"});
    EXPECT_TRUE(graphsSlowerBy(diff, 11.0).empty());
}

TEST(LogComparisonTest, DeltasAreHeldWithinTheSignedRange) {
    constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
    constexpr int64_t kLargest = std::numeric_limits<int64_t>::max();
    EXPECT_EQ(signedDelta(0, kMax), kLargest);
    EXPECT_EQ(signedDelta(kMax, 0), -kLargest);
    EXPECT_EQ(signedDelta(7, 5), -2);
}

}  // namespace
}  // namespace profiling
}  // namespace vek
