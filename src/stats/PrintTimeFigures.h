// Figures the reports compute at print time from the loaded model.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "log/ProfileEvent.h"
#include "stats/StatSummary.h"

namespace vek {
namespace profiling {

// Round trip less the mean queue wait of the graph's series (mean truncated,
// u64 subtraction wraps); none when the graph has no series.
std::optional<uint64_t> roundTripExcludingAverageQueueWait(
    const GraphSummary& graph, const std::vector<QueueWaitSeries>& queueWaits);
// Round trip less the graph's queue wait (wrapping); none without an entry.
std::optional<uint64_t> roundTripExcludingQueueWait(const GraphSummary& graph,
                                                    const std::vector<QueueWaitValue>& queueWaits);

// Inferences per second from the overall-execute events: count x 1000000 /
// duration in single precision, 0 for a zero duration; none with fewer than
// two events. The first event is the duration when it is named "duration".
std::optional<float> inferencesPerSecond(const std::vector<ProfileEvent>& netRunEvents);

// The payload of the first library-load event; none when there is none.
std::optional<uint64_t> backendLatency(const std::vector<ProfileEvent>& libLoadEvents);

// Average, minimum and maximum of the context-section calls, by label.
struct ContextSectionStats {
    std::map<std::string, StatSummary> average;
    std::map<std::string, StatSummary> minimum;
    std::map<std::string, StatSummary> maximum;
};
ContextSectionStats contextSectionStats(
    const std::unordered_map<std::string, std::vector<ExecutionSample>>& contextSectionCalls);

}  // namespace profiling
}  // namespace vek
