#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "logging/LogLevels.h"
#include "reader/VekProfileLogReader.h"
#include "stats/PrintTimeFigures.h"
#include "stats/SampleBuilders.h"
#include "stats/Statistics.h"
#include "support/LogCapture.h"

namespace vek {
namespace profiling {
namespace {

using testdata::event;
using testdata::queueWait;
using testdata::sample;
using testlog::LogCapture;

const std::string kDiagnostic =
    "Multiple queue-wait time events found per execution. Cannot calculate Host Round-Trip "
    "excluding queue wait";

std::vector<std::string> graphNames(const std::vector<GraphSummary>& list) {
    std::vector<std::string> names;
    for (const GraphSummary& graph : list) names.push_back(graph.graphName);
    return names;
}

size_t occurrences(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

TEST(SummaryBuilderTest, EveryKindOfCallGetsThreeListsInGraphOrder) {
    VekProfileLogReader reader("x", VisibilityLevel(5));
    reader.executions = {{"zeta", {sample(0), sample(100), sample(0), sample(300)}},
                         {"alpha", {}},
                         {"mid", {sample(0), sample(0)}}};
    reader.applyBinarySections = {{"apply", {sample(40), sample(20)}}};
    reader.finalizeAfterUpdates = {{"fin", {sample(7)}}, {"fin2", {sample(9)}}};
    reader.buildStatistics();

    const std::vector<std::string> order = {"zeta", "alpha", "mid"};
    EXPECT_EQ(graphNames(reader.executeStats.average), order);
    EXPECT_EQ(graphNames(reader.executeStats.maximum), order);
    EXPECT_EQ(graphNames(reader.executeStats.minimum), order);

    EXPECT_EQ(reader.executeStats.average[0].netRunUs, 200u);
    EXPECT_EQ(reader.executeStats.maximum[0].netRunUs, 300u);
    EXPECT_EQ(reader.executeStats.minimum[0].netRunUs, 100u);
    // A listed graph without calls.
    EXPECT_EQ(reader.executeStats.average[1].netRunUs, 0u);
    EXPECT_EQ(reader.executeStats.maximum[1].netRunUs, 0u);
    EXPECT_EQ(reader.executeStats.minimum[1].netRunUs, 0u);
    // Calls that all took no time.
    EXPECT_EQ(reader.executeStats.minimum[2].netRunUs, kNoMinimum);

    ASSERT_EQ(reader.applyBinarySectionStats.average.size(), 1u);
    EXPECT_EQ(reader.applyBinarySectionStats.average[0].netRunUs, 30u);
    EXPECT_EQ(reader.applyBinarySectionStats.maximum[0].netRunUs, 40u);
    EXPECT_EQ(reader.applyBinarySectionStats.minimum[0].netRunUs, 20u);
    EXPECT_EQ(graphNames(reader.finalizeAfterUpdatesStats.minimum),
              (std::vector<std::string>{"fin", "fin2"}));
    EXPECT_EQ(reader.finalizeAfterUpdatesStats.maximum[1].netRunUs, 9u);

    // Without host round-trips no queue waits are looked for.
    EXPECT_TRUE(reader.averageQueueWaits.empty());
    EXPECT_TRUE(reader.maximumQueueWaits.empty());
    EXPECT_TRUE(reader.minimumQueueWaits.empty());
    EXPECT_TRUE(reader.loaderDiagnostics.empty());
}

TEST(SummaryBuilderTest, QueueWaitsAreCollectedPerCallAndPerStatistic) {
    LogCapture capture;
    VekProfileLogReader reader("x", VisibilityLevel(5));
    reader.hostRoundTrip = true;
    reader.executions = {
        {"g", {sample(100, {queueWait(3)}), sample(100, {event("top", 1, {queueWait(4)})}),
               sample(100, {queueWait(4), event("other", 2)})}}};
    reader.buildStatistics();

    ASSERT_EQ(reader.averageQueueWaits.size(), 1u);
    EXPECT_EQ(reader.averageQueueWaits[0].graphName, "g");
    EXPECT_EQ(reader.averageQueueWaits[0].values, (std::vector<uint64_t>{3, 4, 4}));
    EXPECT_EQ(roundTripExcludingAverageQueueWait(reader.executeStats.average[0], reader.averageQueueWaits),
              97u);

    // Maximum and minimum both take the last call, which waited 4.
    ASSERT_EQ(reader.maximumQueueWaits.size(), 1u);
    EXPECT_EQ(reader.maximumQueueWaits[0].value, 4u);
    ASSERT_EQ(reader.minimumQueueWaits.size(), 1u);
    EXPECT_EQ(reader.minimumQueueWaits[0].value, 4u);
    EXPECT_EQ(roundTripExcludingQueueWait(reader.executeStats.minimum[0], reader.minimumQueueWaits), 96u);

    EXPECT_TRUE(reader.loaderDiagnostics.empty());
    EXPECT_EQ(capture.count(kDiagnostic), 0u);
}

TEST(SummaryBuilderTest, TwoQueueWaitsInOneCallAbandonOnlyTheAverage) {
    LogCapture capture;
    VekProfileLogReader reader("x", VisibilityLevel(5));
    reader.hostRoundTrip = true;
    reader.executions = {
        {"ok", {sample(10, {queueWait(1)})}},
        {"g", {sample(100, {queueWait(1), queueWait(2)}), sample(200, {queueWait(5)}),
               sample(50, {queueWait(6)})}}};
    reader.buildStatistics();

    EXPECT_TRUE(reader.averageQueueWaits.empty());
    EXPECT_FALSE(roundTripExcludingAverageQueueWait(reader.executeStats.average[0], reader.averageQueueWaits));
    EXPECT_EQ(reader.loaderDiagnostics, kDiagnostic + "\n");
    EXPECT_EQ(capture.count(kDiagnostic), 1u);
    EXPECT_TRUE(capture.contains(kDiagnostic, kLogWarn));

    // The maximum and minimum calls carry a single queue wait each.
    ASSERT_EQ(reader.maximumQueueWaits.size(), 2u);
    EXPECT_EQ(reader.maximumQueueWaits[1].value, 5u);
    ASSERT_EQ(reader.minimumQueueWaits.size(), 2u);
    EXPECT_EQ(reader.minimumQueueWaits[1].value, 6u);
}

TEST(SummaryBuilderTest, QueueWaitsBelowTheFirstChildLevelAreNotFound) {
    LogCapture capture;
    VekProfileLogReader reader("x", VisibilityLevel(5));
    reader.hostRoundTrip = true;
    reader.executions = {{"first", {sample(10, {queueWait(2)})}},
                         {"deep", {sample(10, {event("top", 1, {event("mid", 1, {queueWait(2)})})})}}};
    reader.buildStatistics();

    // All three lists are abandoned, each reported once; the maximum and
    // minimum lists drop the graph that was already collected.
    EXPECT_TRUE(reader.averageQueueWaits.empty());
    EXPECT_TRUE(reader.maximumQueueWaits.empty());
    EXPECT_TRUE(reader.minimumQueueWaits.empty());
    EXPECT_EQ(occurrences(reader.loaderDiagnostics, kDiagnostic + "\n"), 3u);
    EXPECT_EQ(capture.count(kDiagnostic), 3u);
}

TEST(SummaryBuilderTest, ZeroLengthCallsLeaveTheMinimumWithoutQueueWait) {
    VekProfileLogReader reader("x", VisibilityLevel(5));
    reader.hostRoundTrip = true;
    // Every call took no time: the minimum has no events and so no queue wait.
    reader.executions = {{"g", {sample(0, {queueWait(2)})}}};
    reader.buildStatistics();
    EXPECT_EQ(reader.averageQueueWaits.size(), 1u);
    EXPECT_EQ(reader.maximumQueueWaits.size(), 1u);
    EXPECT_TRUE(reader.minimumQueueWaits.empty());
    EXPECT_EQ(reader.loaderDiagnostics, kDiagnostic + "\n");
}

}  // namespace
}  // namespace profiling
}  // namespace vek
