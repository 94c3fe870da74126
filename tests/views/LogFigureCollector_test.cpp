#include "views/LogFigureCollector.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "reader/VekProfileLogReader.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using namespace testlog;

EventSpec op(const std::string& name, uint64_t us, std::vector<EventSpec> linting = {}) {
    EventSpec record = EventSpec::u64(name, us, 1, 404);
    if (!linting.empty()) record.withChildren(std::move(linting));
    return record;
}

MessageSpec execution(const std::string& graph, uint64_t netRun, uint64_t accelerator,
                      std::vector<EventSpec> ops) {
    return MessageSpec(kExecute).graph(graph).times(1000, 1000 + netRun).withEvents({
        EventSpec::u64("Accelerator", accelerator).withChildren(std::move(ops)),
        EventSpec::u64("Host overhead", 7),  // holds no ops: not accelerator time
    });
}

// "name avg/min/max" with "-" for an absent figure.
std::string opLine(const OpFigures& op) {
    const auto text = [](const std::optional<uint64_t>& value) {
        return value ? std::to_string(*value) : std::string("-");
    };
    return op.name + " " + std::to_string(op.averageUs) + "/" + text(op.minimumUs) + "/" +
           text(op.maximumUs);
}

TEST(LogFigureCollectorTest, ReadsOpsFromTheSummariesWithTheMergesFirstMatchRule) {
    TempDir dir;
    LogWriter log;
    log.chunk()
        .message(execution("g", 100, 90,
                           {op("conv", 40, {EventSpec::u64("wait", 5, 1, 5001),
                                            EventSpec::u64("bg", 30, 1, 5002)}),
                            op("conv", 20), op("relu", 10)}))
        .message(execution("g", 300, 250, {op("conv", 100), op("conv", 50), op("relu", 60),
                                           op("pool", 30)}))
        .message(execution("g", 50, 45, {op("conv", 30), op("relu", 9)}))
        .message(execution("idle", 0, 0, {}));
    log.writeTo(dir.file("run.log"));
    VekProfileLogReader reader(dir.file("run.log"), VisibilityLevel(127));
    ASSERT_TRUE(reader.loadLog(false));

    const LogFigures figures = collectFigures(reader);
    ASSERT_EQ(figures.graphs.size(), 2u);
    const GraphFigures& g = figures.graphs[0];
    EXPECT_EQ(g.executionCount, 3u);
    EXPECT_EQ(g.netRunAverageUs, 150u);
    EXPECT_EQ(g.netRunMinimumUs, 50u);
    EXPECT_EQ(g.netRunMaximumUs, 300u);
    EXPECT_EQ(g.acceleratorUs, (90u + 250 + 45) / 3);
    // Every later "conv" joins the first one in the average, and both find
    // the first "conv" of the slowest (300) and fastest (50) executions.
    std::vector<std::string> ops;
    for (const OpFigures& figuresOfOp : g.ops) ops.push_back(opLine(figuresOfOp));
    EXPECT_EQ(ops, (std::vector<std::string>{"conv 55/30/100", "conv 20/30/100", "relu 26/9/60",
                                             "pool 30/-/30"}));
    EXPECT_EQ(g.ops[0].waitUs, 5u);
    EXPECT_EQ(g.ops[0].backgroundUs, 30u);
    EXPECT_FALSE(g.ops[0].waitBackgroundUs || g.ops[1].waitUs);

    // A graph whose executions all took 0 us has no minimum and no ops.
    const GraphFigures& idle = figures.graphs[1];
    EXPECT_EQ(idle.executionCount, 1u);
    EXPECT_FALSE(idle.netRunMinimumUs);
    EXPECT_TRUE(idle.ops.empty());
    EXPECT_EQ(idle.acceleratorUs, 0u);
}

}  // namespace
}  // namespace profiling
}  // namespace vek
