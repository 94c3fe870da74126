// The averages that loading builds call by call must be exactly those that
// the statistics step would compute from the samples afterwards.
#include "stats/AverageBuilder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "reader/VekProfileLogReader.h"
#include "stats/Statistics.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using testlog::EventSpec;
using testlog::LogWriter;
using testlog::MessageSpec;
using testlog::TempDir;

void expectSameTree(EventSpan actual, EventSpan expected, const std::string& where) {
    ASSERT_EQ(actual.size(), expected.size()) << where;
    for (size_t i = 0; i < actual.size(); ++i) {
        const ProfileEvent& a = actual[i];
        const ProfileEvent& e = expected[i];
        const std::string here = where + "/" + e.name.str();
        ASSERT_EQ(a.name, e.name) << here;
        EXPECT_EQ(a.identifier, e.identifier) << here;
        EXPECT_EQ(a.unit, e.unit) << here;
        EXPECT_EQ(a.value.dataType, e.value.dataType) << here;
        EXPECT_EQ(a.value.payload, e.value.payload) << here;
        EXPECT_EQ(a.sampleCount, e.sampleCount) << here;
        EXPECT_EQ(a.timestamp, e.timestamp) << here;
        EXPECT_EQ(a.detail, e.detail) << here;
        EXPECT_EQ(a.bytes, e.bytes.vector()) << here;
        expectSameTree(a.children, e.children, here);
    }
}

void expectSameLists(const std::vector<GraphSummary>& actual,
                     const std::vector<GraphSummary>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); ++i) {
        EXPECT_EQ(actual[i].graphName, expected[i].graphName);
        EXPECT_EQ(actual[i].netRunUs, expected[i].netRunUs);
        EXPECT_EQ(actual[i].auxValue, expected[i].auxValue);
        expectSameTree(actual[i].events, expected[i].events, actual[i].graphName);
    }
}

// A call whose tree changes from call to call: names move, repeat, appear and
// vanish; object events come and go; values have every type.
std::vector<EventSpec> callEvents(uint64_t call) {
    std::vector<EventSpec> ops;
    for (uint64_t op = 0; op < 20 + call % 5; ++op) {
        std::vector<EventSpec> work;
        for (uint64_t item = 0; item < (call + op) % 4; ++item) {
            work.push_back(
                EventSpec::u64("work " + std::to_string((call * 7 + op + item) % 5), item));
        }
        EventSpec record =
            EventSpec::u64("op " + std::to_string((op * 3 + call) % 23), op + call, 1, 404);
        record.withChildren({EventSpec::u64("wait", call % 3),
                             EventSpec::u64("background", op).withChildren(work)});
        ops.push_back(record);
    }
    std::vector<EventSpec> events = {EventSpec::u64("Accelerator", call).withChildren(ops)};
    if (call % 3 == 0) events.push_back(EventSpec::object("dump", {1, 2}, "dump.bin"));
    if (call % 2 == 0) events.push_back(EventSpec::i64("signed", -static_cast<int64_t>(call)));
    events.push_back(EventSpec::f64("ratio", 0.5 * static_cast<double>(call)));
    events.push_back(EventSpec::text("mode", call % 2 ? "odd" : "even"));
    events.push_back(EventSpec::u64("Accelerator", 1));  // a repeated name at the top
    return events;
}

TEST(AverageBuilderTest, AveragesBuiltWhileLoadingEqualTheAveragesOfTheSamples) {
    TempDir dir;
    LogWriter log;
    const char* graphs[] = {"g0", "g1", "g2"};
    uint64_t call = 0;
    for (int chunk = 0; chunk < 3; ++chunk) {
        auto& written = log.chunk();
        for (int i = 0; i < 12; ++i, ++call) {
            const uint64_t start = 1000 * call;
            const uint64_t length = call % 4 == 0 ? 0 : 50 + call;  // some calls take no time
            written.message(MessageSpec(testlog::kExecute)
                             .graph(graphs[call % 3])
                             .times(start, start + length)
                             .withEvents(callEvents(call)));
            written.message(MessageSpec(testlog::kApplyBinarySection)
                             .graph(graphs[(call + 1) % 2])
                             .times(start, start + call)
                             .withEvents(callEvents(call + 100)));
            written.message(MessageSpec(testlog::kFinalizeAfterTensorUpdates)
                             .graph("g0")
                             .times(start, start + 7)
                             .visible(call % 5 == 0 ? 9 : 0)  // some hidden
                             .withEvents(callEvents(call + 200)));
        }
    }
    log.writeTo(dir.file("calls.log"));

    VekProfileLogReader reader(dir.file("calls.log"), static_cast<VisibilityLevel>(5));
    ASSERT_TRUE(reader.loadLog(false));
    const SummaryLists executeWhileLoading = reader.executeStats;
    const SummaryLists applyWhileLoading = reader.applyBinarySectionStats;
    const SummaryLists finalizeWhileLoading = reader.finalizeAfterUpdatesStats;
    ASSERT_EQ(executeWhileLoading.average.size(), 3u);
    ASSERT_EQ(finalizeWhileLoading.average.size(), 1u);
    EXPECT_TRUE(reader.runningAverages.executions.empty());  // used up

    // Computed again from the samples alone.
    reader.buildStatistics();
    expectSameLists(executeWhileLoading.average, reader.executeStats.average);
    expectSameLists(applyWhileLoading.average, reader.applyBinarySectionStats.average);
    expectSameLists(finalizeWhileLoading.average, reader.finalizeAfterUpdatesStats.average);
    expectSameLists(executeWhileLoading.maximum, reader.executeStats.maximum);
    expectSameLists(executeWhileLoading.minimum, reader.executeStats.minimum);
    for (size_t i = 0; i < 3; ++i) {
        const StatSummary fromSamples = averageOf(reader.executions[i].samples);
        EXPECT_EQ(fromSamples.netRunUs, executeWhileLoading.average[i].netRunUs);
        expectSameTree(fromSamples.events, executeWhileLoading.average[i].events, "averageOf");
    }
}

TEST(AverageBuilderTest, RunningAveragesThatMissSamplesAreNotUsed) {
    // A graph filled by hand before loading: the running average only saw
    // the loaded call, so the statistics step averages the samples instead.
    TempDir dir;
    LogWriter log;
    log.chunk().message(MessageSpec(testlog::kExecute)
                            .graph("g")
                            .times(0, 30)
                            .withEvents({EventSpec::u64("a", 30)}));
    log.writeTo(dir.file("one.log"));

    VekProfileLogReader reader(dir.file("one.log"), static_cast<VisibilityLevel>(5));
    ExecutionSample early;
    early.netRunUs = 10;
    ProfileEvent a;
    a.name = std::string("a");
    a.value = EventValue{kDataTypeUInt64, 10};
    early.events.push_back(a);
    reader.executions.push_back(GraphSamples{"g", {early}});
    ASSERT_TRUE(reader.loadLog(false));
    ASSERT_EQ(reader.executions.size(), 1u);
    ASSERT_EQ(reader.executeStats.average.size(), 1u);
    EXPECT_EQ(reader.executeStats.average[0].netRunUs, 20u);
    ASSERT_EQ(reader.executeStats.average[0].events.size(), 1u);
    EXPECT_EQ(reader.executeStats.average[0].events[0].value.payload, 20u);
    EXPECT_EQ(reader.executeStats.average[0].events[0].sampleCount, 2u);
}

}  // namespace
}  // namespace profiling
}  // namespace vek
