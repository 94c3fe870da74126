#include "stats/Statistics.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "stats/SampleBuilders.h"

namespace vek {
namespace profiling {
namespace {

using testdata::event;
using testdata::sample;
using testdata::treeText;
using Samples = std::vector<ExecutionSample>;

constexpr uint64_t kLargest = 18446744073709551615ull;

// "netRun aux events"
std::string text(const StatSummary& s) {
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

// The merge rules written out as plainly as possible: the first list is
// taken whole, later events join the first event of their name (appended
// ones included), unmatched objects are dropped.
void referenceMerge(std::vector<ProfileEvent>& into, EventSpan from) {
    const bool first = into.empty();
    for (const ProfileEvent& b : from) {
        ProfileEvent* match = nullptr;
        for (ProfileEvent& a : into) {
            if (!first && a.name == b.name) {
                match = &a;
                break;
            }
        }
        if (match != nullptr) {
            match->value.dataType = kDataTypeUInt64;
            match->value.payload += b.value.payload;
            ++match->sampleCount;
            referenceMerge(match->children.edit(), b.children);
        } else if (b.unit != kUnitObject) {
            into.push_back(b);
        }
    }
}

std::vector<ProfileEvent> randomList(std::mt19937& random, size_t width, int depth) {
    std::uniform_int_distribution<int> name(0, 30);
    std::uniform_int_distribution<int> unit(1, 6);
    std::uniform_int_distribution<int> code(0, 3);
    std::uniform_int_distribution<uint64_t> payload(0, 1000);
    const uint32_t codes[] = {kDataTypeUInt64, kDataTypeUInt64, kDataTypeInt64, kDataTypeFloat64};
    std::vector<ProfileEvent> events;
    for (size_t i = 0; i < width; ++i) {
        std::vector<ProfileEvent> children;
        if (depth > 0) children = randomList(random, width / 2, depth - 1);
        events.push_back(event("e" + std::to_string(name(random)), payload(random), std::move(children),
                               static_cast<uint32_t>(unit(random)), codes[code(random)]));
    }
    return events;
}

// Random lists, narrow and wider than the merger's name index threshold,
// with many repeated names.
TEST(StatisticsTest, IndexedMergeMatchesThePlainRules) {
    std::mt19937 random(20240611);
    for (int round = 0; round < 8; ++round) {
        Samples samples;
        std::uniform_int_distribution<size_t> width(0, 40);
        for (int s = 0; s < 6; ++s) samples.push_back(sample(1, randomList(random, width(random), 2)));

        std::vector<ProfileEvent> expected;
        for (const ExecutionSample& s : samples) referenceMerge(expected, s.events);
        std::vector<ProfileEvent> merged;
        for (const ExecutionSample& s : samples) mergeEvents(merged, s.events);
        ASSERT_EQ(treeText(merged, true), treeText(expected, true));

        divideBySampleCount(expected);
        ASSERT_EQ(treeText(averageOf(samples).events, true), treeText(expected, true));
    }
}

}  // namespace
}  // namespace profiling
}  // namespace vek
