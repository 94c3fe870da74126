#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

#include "logging/LogLevels.h"
#include "reader/VekProfileLogReader.h"
#include "stats/PrintTimeFigures.h"
#include "stats/SampleBuilders.h"
#include "support/LogCapture.h"

namespace vek {
namespace profiling {
namespace {

using testdata::event;
using testdata::queueWait;
using testdata::sample;

const std::string kDiagnostic =
    "Multiple queue-wait time events found per execution. Cannot calculate Host Round-Trip "
    "excluding queue wait";

// "name=netRunUs/callCount" per graph, in list order.
std::string figures(const std::vector<GraphSummary>& list) {
    std::string text;
    for (const GraphSummary& graph : list) {
        text += graph.graphName + "=" + std::to_string(graph.netRunUs) + "/" +
                std::to_string(graph.callCount) + " ";
    }
    return text;
}

// All queue-wait values of a list, graph after graph.
template <typename List>
std::vector<uint64_t> waitValues(const List& list) {
    std::vector<uint64_t> values;
    for (const auto& wait : list) {
        if constexpr (std::is_same_v<typename List::value_type, QueueWaitSeries>) {
            values.insert(values.end(), wait.values.begin(), wait.values.end());
        } else {
            values.push_back(wait.value);
        }
    }
    return values;
}

// The figures themselves show in the text summary's tests.
TEST(SummaryBuilderTest, ListsKeepTheGraphOrderAndAGraphWithoutCallsGetsZeros) {
    VekProfileLogReader reader("x", VisibilityLevel(5));
    reader.executions = {{"zeta", {sample(0), sample(100), sample(300)}}, {"alpha", {}}};
    reader.finalizeAfterUpdates = {{"fin", {sample(7)}}, {"fin2", {sample(9), sample(5)}}};
    reader.buildStatistics();
    EXPECT_EQ(figures(reader.executeStats.average), "zeta=200/3 alpha=0/0 ");
    EXPECT_EQ(figures(reader.executeStats.maximum), "zeta=300/3 alpha=0/0 ");
    EXPECT_EQ(figures(reader.executeStats.minimum), "zeta=100/3 alpha=0/0 ");
    EXPECT_EQ(figures(reader.finalizeAfterUpdatesStats.minimum), "fin=7/1 fin2=5/2 ");
    // Without host round-trips no queue waits are looked for.
    EXPECT_TRUE(reader.averageQueueWaits.empty() && reader.maximumQueueWaits.empty() &&
                reader.minimumQueueWaits.empty());
    EXPECT_TRUE(reader.loaderDiagnostics.empty());
}

TEST(SummaryBuilderTest, QueueWaitListsNeedExactlyOneWaitPerCall) {
    using Values = std::vector<uint64_t>;
    const struct {
        const char* what;
        std::vector<GraphSamples> executions;
        Values average, maximum, minimum;
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
        // Nothing is found below the first child level; the maximum and minimum
        // lists also drop the graph that was already collected.
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

// The summary's golden files show the usual figures; these are the edges.
TEST(PrintTimeFiguresTest, QueueWaitIsSubtractedWithWrapping) {
    constexpr uint64_t kLargest = 18446744073709551615ull;
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
