#include "stats/PrintTimeFigures.h"

#include <cstring>

#include "reader/VekProfileLogReader.h"
#include "stats/Statistics.h"

namespace vek {
namespace profiling {

std::optional<uint64_t> roundTripExcludingAverageQueueWait(
    const GraphSummary& graph, const std::vector<QueueWaitSeries>& queueWaits) {
    for (const QueueWaitSeries& series : queueWaits) {
        if (series.graphName != graph.graphName) continue;
        double sum = 0.0;
        for (uint64_t value : series.values) sum += static_cast<double>(value);
        const double mean = sum / static_cast<double>(series.values.size());
        return graph.netRunUs - static_cast<uint64_t>(mean);
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
