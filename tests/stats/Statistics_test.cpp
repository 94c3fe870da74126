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

constexpr uint64_t kLargest = 18446744073709551615ull;

std::vector<std::string> namesOf(EventSpan events) {
    std::vector<std::string> names;
    for (const ProfileEvent& e : events) names.push_back(e.name);
    return names;
}

TEST(StatisticsTest, ZeroDurationsAddNothingAndStayOutOfTheDivisor) {
    const std::vector<ExecutionSample> samples = {
        sample(0, {event("a", 1)}, 11), sample(100, {event("b", 2)}, 12),
        sample(0, {event("c", 3)}, 13), sample(300, {event("d", 4)}, 14)};

    const StatSummary average = averageOf(samples);
    EXPECT_EQ(average.netRunUs, 200u);
    EXPECT_EQ(average.auxValue, 14u);  // the last sample's

    const StatSummary maximum = maximumOf(samples);
    EXPECT_EQ(maximum.netRunUs, 300u);
    EXPECT_EQ(maximum.auxValue, 14u);
    EXPECT_EQ(namesOf(maximum.events), std::vector<std::string>{"d"});

    const StatSummary minimum = minimumOf(samples);
    EXPECT_EQ(minimum.netRunUs, 100u);
    EXPECT_EQ(minimum.auxValue, 12u);
    EXPECT_EQ(namesOf(minimum.events), std::vector<std::string>{"b"});
}

TEST(StatisticsTest, AllZeroDurationsGiveTheMinimumSentinel) {
    const std::vector<ExecutionSample> samples = {sample(0, {event("first", 1)}, 5),
                                                  sample(0, {event("last", 2)}, 6)};
    EXPECT_EQ(averageOf(samples).netRunUs, 0u);

    const StatSummary maximum = maximumOf(samples);
    EXPECT_EQ(maximum.netRunUs, 0u);
    EXPECT_EQ(maximum.auxValue, 6u);
    EXPECT_EQ(namesOf(maximum.events), std::vector<std::string>{"last"});

    const StatSummary minimum = minimumOf(samples);
    EXPECT_EQ(minimum.netRunUs, kNoMinimum);
    EXPECT_EQ(minimum.netRunUs, kLargest);
    EXPECT_EQ(minimum.auxValue, 0u);
    EXPECT_TRUE(minimum.events.empty());
}

TEST(StatisticsTest, EmptyListGivesZerosEverywhere) {
    const std::vector<ExecutionSample> none;
    for (const StatSummary& summary : {averageOf(none), maximumOf(none), minimumOf(none)}) {
        EXPECT_EQ(summary.netRunUs, 0u);
        EXPECT_EQ(summary.auxValue, 0u);
        EXPECT_TRUE(summary.events.empty());
    }
}

TEST(StatisticsTest, TiesGoToTheLaterSample) {
    const std::vector<ExecutionSample> samples = {sample(250, {event("first", 1)}, 1),
                                                  sample(250, {event("second", 2)}, 2)};
    for (const StatSummary& summary : {maximumOf(samples), minimumOf(samples)}) {
        EXPECT_EQ(summary.netRunUs, 250u);
        EXPECT_EQ(summary.auxValue, 2u);
        EXPECT_EQ(namesOf(summary.events), std::vector<std::string>{"second"});
    }
}

TEST(StatisticsTest, SumsWrapInSixtyFourBits) {
    const StatSummary average =
        averageOf({sample(kLargest, {event("x", kLargest)}), sample(2, {event("x", 3)})});
    EXPECT_EQ(average.netRunUs, 0u);  // (2^64 - 1 + 2) mod 2^64 = 1, / 2
    ASSERT_EQ(average.events.size(), 1u);
    EXPECT_EQ(average.events[0].value.payload, 1u);  // (2^64 - 1 + 3) mod 2^64 = 2, / 2
}

TEST(StatisticsTest, EventMissingFromSomeCallsIsAveragedOverItsOwnCount) {
    const std::vector<ExecutionSample> samples = {
        sample(10, {event("Conv", 10)}), sample(10, {event("Other", 4)}), sample(10, {event("Conv", 20)})};

    std::vector<ProfileEvent> merged;
    for (const ExecutionSample& s : samples) mergeEvents(merged, s.events);
    ASSERT_EQ(namesOf(merged), (std::vector<std::string>{"Conv", "Other"}));
    EXPECT_EQ(merged[0].value.payload, 30u);
    EXPECT_EQ(merged[0].sampleCount, 2u);
    EXPECT_EQ(merged[1].sampleCount, 1u);

    const StatSummary average = averageOf(samples);
    ASSERT_EQ(average.events.size(), 2u);
    EXPECT_EQ(average.events[0].value.payload, 15u);
    EXPECT_EQ(average.events[1].value.payload, 4u);
}

TEST(StatisticsTest, MatchedValuesBecomeUnsignedButUnmatchedKeepTheirCode) {
    const StatSummary average =
        averageOf({sample(1, {event("signed", 7, {}, kUnitCount, kDataTypeInt64),
                              event("float", 0x40490fdb, {}, kUnitNone, kDataTypeFloat32)}),
                   sample(1, {event("signed", 8, {}, kUnitCount, kDataTypeInt64)})});
    ASSERT_EQ(average.events.size(), 2u);
    EXPECT_EQ(average.events[0].value.dataType, static_cast<uint32_t>(kDataTypeUInt64));
    EXPECT_EQ(average.events[0].value.payload, 7u);  // 15 / 2
    // Seen once: neither converted nor divided.
    EXPECT_EQ(average.events[1].value.dataType, static_cast<uint32_t>(kDataTypeFloat32));
    EXPECT_EQ(average.events[1].value.payload, 0x40490fdbu);
}

TEST(StatisticsTest, ObjectEventsAreNeverAccumulated) {
    const StatSummary average =
        averageOf({sample(1, {event("blob", 1, {}, kUnitObject), event("a", 2)}),
                   sample(1, {event("blob2", 1, {}, kUnitObject), event("a", 4), event("b", 6)})});
    EXPECT_EQ(namesOf(average.events), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(average.events[0].value.payload, 3u);
}

// A list as wide as this one is looked up through the merger's name index.
std::vector<ProfileEvent> wideList(std::vector<ProfileEvent> tail) {
    std::vector<ProfileEvent> events;
    for (int i = 0; i < 40; ++i) events.push_back(event("filler" + std::to_string(i), 1));
    for (ProfileEvent& e : tail) events.push_back(std::move(e));
    return events;
}

TEST(StatisticsTest, RepeatedNamesMatchTheFirstAccumulatedEvent) {
    for (const bool wide : {false, true}) {
        SCOPED_TRACE(wide ? "wide" : "narrow");
        auto list = [wide](std::vector<ProfileEvent> events) {
            return wide ? wideList(std::move(events)) : events;
        };
        const size_t base = wide ? 40 : 0;
        // The first list is taken whole, its repeated name included.
        std::vector<ProfileEvent> merged = list({event("dup", 1), event("dup", 2)});
        mergeEvents(merged, list({event("dup", 10)}));
        // A name first met in a later list is appended once, and its second
        // occurrence in the same list joins the appended copy.
        mergeEvents(merged, list({event("new", 5), event("new", 7)}));
        ASSERT_EQ(merged.size(), base + 3);
        EXPECT_EQ(merged[base].value.payload, 11u);
        EXPECT_EQ(merged[base].sampleCount, 2u);
        EXPECT_EQ(merged[base + 1].value.payload, 2u);
        EXPECT_EQ(merged[base + 1].sampleCount, 1u);
        EXPECT_EQ(merged[base + 2].name, "new");
        EXPECT_EQ(merged[base + 2].value.payload, 12u);
        EXPECT_EQ(merged[base + 2].sampleCount, 2u);
    }
}

TEST(StatisticsTest, ChildrenAreMergedAndAveragedAtEveryDepth) {
    const StatSummary average = averageOf(
        {sample(10, {event("top", 10, {event("mid", 20, {event("leaf", 30)})})}),
         sample(10, {event("top", 30, {event("mid", 40, {event("leaf", 50), event("late", 9)})})})});
    ASSERT_EQ(average.events.size(), 1u);
    const ProfileEvent& top = average.events[0];
    EXPECT_EQ(top.value.payload, 20u);
    ASSERT_EQ(top.children.size(), 1u);
    const ProfileEvent& mid = top.children[0];
    EXPECT_EQ(mid.value.payload, 30u);
    EXPECT_EQ(mid.sampleCount, 2u);
    ASSERT_EQ(namesOf(mid.children), (std::vector<std::string>{"leaf", "late"}));
    EXPECT_EQ(mid.children[0].value.payload, 40u);
    EXPECT_EQ(mid.children[1].value.payload, 9u);
    EXPECT_EQ(mid.children[1].sampleCount, 1u);
}

// The merge rules written out as plainly as possible, to check the indexed
// merge against on random wide lists with many repeated names.
void referenceMerge(std::vector<ProfileEvent>& into, EventSpan from) {
    if (into.empty()) {
        for (const ProfileEvent& e : from) {
            if (e.unit != kUnitObject) into.push_back(e);
        }
        return;
    }
    for (const ProfileEvent& b : from) {
        ProfileEvent* match = nullptr;
        for (ProfileEvent& a : into) {
            if (a.name == b.name) {
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

void expectSameTree(EventSpan actual, EventSpan expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); ++i) {
        ASSERT_EQ(actual[i].name, expected[i].name);
        ASSERT_EQ(actual[i].unit, expected[i].unit);
        ASSERT_EQ(actual[i].value.dataType, expected[i].value.dataType);
        ASSERT_EQ(actual[i].value.payload, expected[i].value.payload);
        ASSERT_EQ(actual[i].sampleCount, expected[i].sampleCount);
        expectSameTree(actual[i].children, expected[i].children);
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

TEST(StatisticsTest, IndexedMergeMatchesThePlainRules) {
    std::mt19937 random(20240611);
    for (int round = 0; round < 8; ++round) {
        std::vector<ExecutionSample> samples;
        std::uniform_int_distribution<size_t> width(0, 40);
        for (int s = 0; s < 6; ++s) samples.push_back(sample(1, randomList(random, width(random), 2)));

        std::vector<ProfileEvent> expected;
        for (const ExecutionSample& s : samples) referenceMerge(expected, s.events);
        std::vector<ProfileEvent> merged;
        for (const ExecutionSample& s : samples) mergeEvents(merged, s.events);
        expectSameTree(merged, expected);

        divideBySampleCount(expected);
        expectSameTree(averageOf(samples).events, expected);
        if (HasFatalFailure()) return;
    }
}

}  // namespace
}  // namespace profiling
}  // namespace vek
