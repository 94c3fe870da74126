// Per-graph summaries that the statistics step builds after loading.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "log/ProfileEvent.h"

namespace vek {
namespace profiling {

struct StatSummary {
    uint64_t netRunUs = 0;
    uint64_t auxValue = 0;
    std::vector<ProfileEvent> events;
};

struct GraphSummary {
    std::string graphName;
    uint64_t netRunUs = 0;
    uint64_t auxValue = 0;
    std::vector<ProfileEvent> events;
    // How many of the graph's calls the summary was taken over (zero-length
    // ones included), so that views need not keep the calls themselves.
    uint64_t callCount = 0;
};

// One queue-wait payload per execution of a graph, in log order.
struct QueueWaitSeries {
    std::string graphName;
    std::vector<uint64_t> values;
};

struct QueueWaitValue {
    std::string graphName;
    uint64_t value = 0;
};

// Average, maximum and minimum per graph of one kind of timed call.
struct SummaryLists {
    std::vector<GraphSummary> average;
    std::vector<GraphSummary> maximum;
    std::vector<GraphSummary> minimum;
};

}  // namespace profiling
}  // namespace vek
