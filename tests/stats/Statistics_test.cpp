// Averages, maxima, minima and queue waits of hand-made calls; the goldens of
// TextSummary_test show the usual figures in print.
#include "stats/Statistics.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "logging/LogLevels.h"
#include "reader/VekProfileLogReader.h"
#include "stats/PrintTimeFigures.h"
#include "support/LogCapture.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using Samples = std::vector<ExecutionSample>;
constexpr uint64_t kLargest = 18446744073709551615ull;

ProfileEvent event(std::string name, uint64_t payload, std::vector<ProfileEvent> children = {},
                   uint32_t unit = kUnitMicroseconds, uint32_t dataType = kDataTypeUInt64) {
    ProfileEvent result;
    result.name = std::move(name);
    result.value = EventValue{dataType, payload};
    result.unit = unit;
    result.children = std::move(children);
    return result;
}

ProfileEvent queueWait(uint64_t payload) {
    ProfileEvent result = event("Queue Wait", payload);
    result.identifier = kQueueWaitIdentifier;
    return result;
}

ExecutionSample sample(uint64_t netRunUs, std::vector<ProfileEvent> events = {}, uint64_t auxValue = 0) {
    return ExecutionSample{netRunUs, auxValue, std::move(events)};
}

// "name=payload", then "xN" for a count other than 1, ":tN" for a type other than u64, children in parentheses.
std::string treeText(EventSpan events) {
    std::string text;
    for (const ProfileEvent& e : events) {
        if (!text.empty()) text += ' ';
        text += e.name.str() + "=" + std::to_string(e.value.payload);
        if (e.sampleCount != 1) text += "x" + std::to_string(e.sampleCount);
        if (e.value.dataType != kDataTypeUInt64) text += ":t" + std::to_string(e.value.dataType);
        if (!e.children.empty()) text += "(" + treeText(e.children) + ")";
    }
    return text;
}

std::string text(const StatSummary& s) {  // "netRun aux events"
    return std::to_string(s.netRunUs) + " " + std::to_string(s.auxValue) + " " + treeText(s.events);
}

TEST(StatisticsTest, AverageMaximumAndMinimumPickTheirCall) {
    const struct {
        const char* what;
        Samples samples;
        const char* average;
        const char* maximum;
        const char* minimum;
    } cases[] = {
        // Zero durations stay out of the divisor and the minimum; aux is the last sample's.
        {"zero durations",
         {sample(0, {event("a", 1)}, 11), sample(100, {event("b", 2)}, 12),
          sample(0, {event("c", 3)}, 13), sample(300, {event("d", 4)}, 14)},
         "200 14 a=1 b=2 c=3 d=4", "300 14 d=4", "100 12 b=2"},
        {"all zero: the minimum is the sentinel without events",
         {sample(0, {event("first", 1)}, 5), sample(0, {event("last", 2)}, 6)},
         "0 6 first=1 last=2", "0 6 last=2", "18446744073709551615 0 "},
        {"empty list", {}, "0 0 ", "0 0 ", "0 0 "},
        {"ties go to the later sample",
         {sample(250, {event("first", 1)}, 1), sample(250, {event("second", 2)}, 2)},
         "250 2 first=1 second=2", "250 2 second=2", "250 2 second=2"},
        // (2^64 - 1 + 2) mod 2^64 = 1, / 2; the event's (2^64 - 1 + 3) = 2, / 2.
        {"sums wrap in 64 bits", {sample(kLargest, {event("x", kLargest)}), sample(2, {event("x", 3)})},
         "0 0 x=1x2", "18446744073709551615 0 x=18446744073709551615", "2 0 x=3"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(text(averageOf(c.samples)), c.average);
        EXPECT_EQ(text(maximumOf(c.samples)), c.maximum);
        EXPECT_EQ(text(minimumOf(c.samples)), c.minimum);
    }
    EXPECT_EQ(kNoMinimum, kLargest);
}

TEST(StatisticsTest, AveragedEventsAreMergedByNameAndDividedByTheirOwnCount) {
    const struct {
        const char* what;
        Samples samples;
        const char* events;
    } cases[] = {
        {"an event missing from some calls",
         {sample(10, {event("Conv", 10)}), sample(10, {event("Other", 4)}), sample(10, {event("Conv", 20)})},
         "Conv=15x2 Other=4"},
        // Matched values become u64; one seen once keeps its code and is not divided.
        {"value types",
         {sample(1, {event("signed", 7, {}, kUnitCount, kDataTypeInt64),
                     event("float", 0x40490fdb, {}, kUnitNone, kDataTypeFloat32)}),
          sample(1, {event("signed", 8, {}, kUnitCount, kDataTypeInt64)})},
         "signed=7x2 float=1078530011:t562"},  // 0x232
        {"object events are never accumulated",
         {sample(1, {event("blob", 1, {}, kUnitObject), event("a", 2)}),
          sample(1, {event("blob2", 1, {}, kUnitObject), event("a", 4), event("b", 6)})},
         "a=3x2 b=6"},
        {"children at every depth",
         {sample(10, {event("top", 10, {event("mid", 20, {event("leaf", 30)})})}),
          sample(10, {event("top", 30, {event("mid", 40, {event("leaf", 50), event("late", 9)})})})},
         "top=20x2(mid=30x2(leaf=40x2 late=9))"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(treeText(averageOf(c.samples).events), c.events);
    }
}

// Levels wider than the merger scans (16) and remembers names (32), loaded and recomputed: a name repeated
// in the first call stays apart, later ones join the first of their name, appended ones included; an
// empty call still counts.
TEST(StatisticsTest, WideLevelsMergeAsNarrowOnes) {
    using namespace testlog;
    std::vector<EventSpec> first, second;
    std::string ops;
    for (int i = 0; i < 40; ++i) {
        first.push_back(EventSpec::u64("op " + std::to_string(i), 2));
        second.insert(second.begin(), EventSpec::u64("op " + std::to_string(i), 4));
        ops += "op " + std::to_string(i) + "=3x2 ";
    }
    first.push_back(EventSpec::u64("op 0", 100));
    second.push_back(EventSpec::u64("new", 5));
    second.push_back(EventSpec::u64("new", 7));
    TempDir dir;
    LogWriter log;
    log.chunk()
        .message(MessageSpec(kExecute).graph("g").times(0, 10)
                     .withEvents({EventSpec::u64("Accel", 1).withChildren(first)}))
        .message(MessageSpec(kExecute).graph("g").times(20, 30)
                     .withEvents({EventSpec::u64("Accel", 3).withChildren(second)}))
        .message(MessageSpec(kExecute).graph("g").times(40, 40));
    log.writeTo(dir.file("wide.bin"));
    VekProfileLogReader reader(dir.file("wide.bin"), VisibilityLevel(5));
    ASSERT_TRUE(reader.loadLog(false));
    const std::string expected = "Accel=2x2(" + ops + "op 0=100 new=6x2)";
    EXPECT_EQ(treeText(reader.executeStats.average.at(0).events), expected);
    EXPECT_EQ(reader.executeStats.average[0].callCount, 3u);
    reader.buildStatistics();
    EXPECT_EQ(treeText(reader.executeStats.average.at(0).events), expected);
}

std::vector<uint64_t> waitValues(const std::vector<QueueWaitSeries>& list) {
    std::vector<uint64_t> values;
    for (const auto& wait : list) values.insert(values.end(), wait.values.begin(), wait.values.end());
    return values;
}

std::vector<uint64_t> waitValues(const std::vector<QueueWaitValue>& list) {
    std::vector<uint64_t> values;
    for (const auto& wait : list) values.push_back(wait.value);
    return values;
}

TEST(SummaryBuilderTest, QueueWaitListsNeedExactlyOneWaitPerCall) {
    const std::string kDiagnostic =
        "Multiple queue-wait time events found per execution. Cannot calculate Host Round-Trip "
        "excluding queue wait";
    const struct {
        const char* what;
        std::vector<GraphSamples> executions;
        std::vector<uint64_t> average, maximum, minimum;
        size_t diagnostics;
    } cases[] = {
        // Maximum and minimum both take the last call, which waited 4.
        {"at the top and one level down",
         {{"g", {sample(100, {queueWait(3)}), sample(100, {event("top", 1, {queueWait(4)})}),
                 sample(100, {queueWait(4), event("other", 2)})}}},
         {3, 4, 4}, {4}, {4}, 0},
        // The maximum and minimum calls carry a single queue wait each.
        {"two in one call abandon only the average",
         {{"ok", {sample(10, {queueWait(1)})}},
          {"g", {sample(100, {queueWait(1), queueWait(2)}), sample(200, {queueWait(5)}),
                 sample(50, {queueWait(6)})}}},
         {}, {1, 5}, {1, 6}, 1},
        // Nothing is found below the first child level; max and min also drop the graph collected before.
        {"too deep",
         {{"first", {sample(10, {queueWait(2)})}},
          {"deep", {sample(10, {event("top", 1, {event("mid", 1, {queueWait(2)})})})}}},
         {}, {}, {}, 3},
        // Calls that all took no time leave the minimum without events.
        {"all calls zero", {{"g", {sample(0, {queueWait(2)})}}}, {2}, {2}, {}, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        testlog::LogCapture capture;
        VekProfileLogReader reader("x", VisibilityLevel(5));
        reader.hostRoundTrip = true;
        reader.executions = c.executions;
        reader.buildStatistics();
        EXPECT_EQ(waitValues(reader.averageQueueWaits), c.average);
        EXPECT_EQ(waitValues(reader.maximumQueueWaits), c.maximum);
        EXPECT_EQ(waitValues(reader.minimumQueueWaits), c.minimum);
        std::string expected;
        for (size_t i = 0; i < c.diagnostics; ++i) expected += kDiagnostic + "\n";
        EXPECT_EQ(reader.loaderDiagnostics, expected);
        EXPECT_EQ(capture.count(kDiagnostic), c.diagnostics);
        EXPECT_EQ(capture.contains(kDiagnostic, kLogWarn), c.diagnostics > 0);
    }
}

GraphSummary graph(const std::string& name, uint64_t netRunUs) { return GraphSummary{name, netRunUs, 0, {}}; }

TEST(PrintTimeFiguresTest, QueueWaitIsSubtractedWithWrapping) {
    // The average takes the truncated mean of the first matching series.
    const std::vector<QueueWaitSeries> series = {{"other", {50}}, {"g", {3, 4, 4}}, {"g", {1}}};
    EXPECT_EQ(roundTripExcludingAverageQueueWait(graph("g", 100), series), 97u);
    EXPECT_FALSE(roundTripExcludingAverageQueueWait(graph("G", 100), series).has_value());
    EXPECT_EQ(roundTripExcludingAverageQueueWait(graph("g", 2), series), kLargest);
    // Degenerate series do not reach an undefined conversion.
    EXPECT_EQ(roundTripExcludingAverageQueueWait(graph("g", 8), {{"g", {}}}), 8u);
    EXPECT_EQ(roundTripExcludingAverageQueueWait(graph("g", 8), {{"g", {kLargest, kLargest}}}), 9u);

    const std::vector<QueueWaitValue> single = {{"a", 10}, {"b", 30}};
    EXPECT_EQ(roundTripExcludingQueueWait(graph("b", 100), single), 70u);
    EXPECT_EQ(roundTripExcludingQueueWait(graph("a", 4), single), kLargest - 5);
    EXPECT_FALSE(roundTripExcludingQueueWait(graph("c", 4), single).has_value());
}

}  // namespace
}  // namespace profiling
}  // namespace vek
