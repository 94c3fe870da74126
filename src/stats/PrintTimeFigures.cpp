#include "stats/PrintTimeFigures.h"

#include <limits>

#include "reader/VekProfileLogReader.h"
#include "stats/Statistics.h"

namespace vek {
namespace profiling {
namespace {

// The mean of the values summed in order as doubles, truncated toward zero.
// An empty series subtracts nothing, and a mean that rounds up past the u64
// range is held at its largest value: converting either to u64 is undefined.
uint64_t truncatedMean(const std::vector<uint64_t>& values) {
    if (values.empty()) return 0;
    double sum = 0.0;
    for (uint64_t value : values) sum += static_cast<double>(value);
    const double mean = sum / static_cast<double>(values.size());
    constexpr double kPastLargest = 18446744073709551616.0;  // 2^64
    if (mean >= kPastLargest) return std::numeric_limits<uint64_t>::max();
    return static_cast<uint64_t>(mean);
}

}  // namespace

std::optional<uint64_t> roundTripExcludingAverageQueueWait(
    const GraphSummary& graph, const std::vector<QueueWaitSeries>& queueWaits) {
    for (const QueueWaitSeries& series : queueWaits) {
        if (series.graphName != graph.graphName) continue;
        return graph.netRunUs - truncatedMean(series.values);
    }
    return std::nullopt;
}

std::optional<uint64_t> roundTripExcludingQueueWait(const GraphSummary& graph,
                                                    const std::vector<QueueWaitValue>& queueWaits) {
    for (const QueueWaitValue& wait : queueWaits) {
        if (wait.graphName == graph.graphName) return graph.netRunUs - wait.value;
    }
    return std::nullopt;
}

std::optional<float> inferencesPerSecond(const std::vector<ProfileEvent>& netRunEvents) {
    if (netRunEvents.size() < 2) return std::nullopt;
    const bool durationFirst = netRunEvents[0].name == "duration";
    const uint64_t duration = netRunEvents[durationFirst ? 0 : 1].value.payload;
    const uint64_t count = netRunEvents[durationFirst ? 1 : 0].value.payload;
    if (duration == 0) return 0.0f;
    const float product = static_cast<float>(count) * 1000000.0f;
    return product / static_cast<float>(duration);
}

std::optional<uint64_t> backendLatency(const std::vector<ProfileEvent>& libLoadEvents) {
    if (libLoadEvents.empty()) return std::nullopt;
    return libLoadEvents.front().value.payload;
}

ContextSectionStats contextSectionStats(
    const std::unordered_map<std::string, std::vector<ExecutionSample>>& contextSectionCalls) {
    static const std::string kLabel = "Get Binary Section Size";
    ContextSectionStats stats;
    for (const auto& [name, samples] : contextSectionCalls) {
        if (name != kContextGetBinarySectionSizeLabel) continue;
        stats.minimum[kLabel] = minimumOf(samples);
        stats.maximum[kLabel] = maximumOf(samples);
        stats.average[kLabel] = averageOf(samples);
    }
    return stats;
}

}  // namespace profiling
}  // namespace vek
