#include "stats/PrintTimeFigures.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "reader/VekProfileLogReader.h"
#include "stats/SampleBuilders.h"

namespace vek {
namespace profiling {
namespace {

using testdata::event;
using testdata::sample;

constexpr uint64_t kLargest = 18446744073709551615ull;

GraphSummary graph(const std::string& name, uint64_t netRunUs) { return GraphSummary{name, netRunUs, 0, {}}; }

TEST(PrintTimeFiguresTest, AverageQueueWaitUsesTheTruncatedMeanOfTheFirstMatchingSeries) {
    const std::vector<QueueWaitSeries> waits = {{"other", {50}}, {"g", {3, 4, 4}}, {"g", {1}}};
    EXPECT_EQ(roundTripExcludingAverageQueueWait(graph("g", 100), waits), 97u);
    EXPECT_FALSE(roundTripExcludingAverageQueueWait(graph("G", 100), waits).has_value());
    // A wait longer than the round trip wraps.
    EXPECT_EQ(roundTripExcludingAverageQueueWait(graph("g", 2), waits), kLargest);
    // Degenerate series do not reach an undefined conversion.
    EXPECT_EQ(roundTripExcludingAverageQueueWait(graph("g", 8), {{"g", {}}}), 8u);
    EXPECT_EQ(roundTripExcludingAverageQueueWait(graph("g", 8), {{"g", {kLargest, kLargest}}}), 9u);
}

TEST(PrintTimeFiguresTest, SingleQueueWaitIsSubtractedWithWrapping) {
    const std::vector<QueueWaitValue> waits = {{"a", 10}, {"b", 30}};
    EXPECT_EQ(roundTripExcludingQueueWait(graph("b", 100), waits), 70u);
    EXPECT_EQ(roundTripExcludingQueueWait(graph("a", 4), waits), kLargest - 5);
    EXPECT_FALSE(roundTripExcludingQueueWait(graph("c", 4), waits).has_value());
}

TEST(PrintTimeFiguresTest, InferencesPerSecondFindsTheDurationByNameInSinglePrecision) {
    const struct {
        std::vector<ProfileEvent> events;
        const char* expected;  // null: no figure
    } cases[] = {
        {{event("count", 500), event("duration", 2000000)}, "250.0000"},
        {{event("duration", 2000000), event("count", 500)}, "250.0000"},
        // Without a leading "duration" the second event is the duration.
        {{event("a", 2000000), event("b", 500)}, "4000000000.0000"},
        {{event("count", 500), event("duration", 0)}, "0.0000"},
        // 16777217 is not representable as a float and becomes 16777216.
        {{event("count", 16777217), event("duration", 1000000)}, "16777216.0000"},
        {{event("duration", 5)}, nullptr},
    };
    for (const auto& c : cases) {
        const auto ips = inferencesPerSecond(c.events);
        ASSERT_EQ(ips.has_value(), c.expected != nullptr) << c.events.size();
        if (!ips) continue;
        char text[64];
        std::snprintf(text, sizeof text, "%.4f", static_cast<double>(*ips));
        EXPECT_EQ(std::string(text), c.expected);
    }
}

TEST(PrintTimeFiguresTest, ContextSectionStatsUseOnlyTheSectionSizeCalls) {
    std::unordered_map<std::string, std::vector<ExecutionSample>> calls;
    calls[kContextGetBinarySectionSizeLabel] = {sample(0), sample(100), sample(300)};
    calls["CONTEXT GET BINARY SECTION SIZE "] = {sample(5)};
    calls[kContextGetBinarySizeLabel] = {sample(7)};
    const ContextSectionStats stats = contextSectionStats(calls);
    // Zero-length calls stay out of the average's divisor and out of the minimum.
    ASSERT_EQ(stats.average.size(), 1u);
    EXPECT_EQ(stats.average.at("Get Binary Section Size").netRunUs, 200u);
    EXPECT_EQ(stats.minimum.at("Get Binary Section Size").netRunUs, 100u);
    EXPECT_EQ(stats.maximum.size(), 1u);
}

}  // namespace
}  // namespace profiling
}  // namespace vek
