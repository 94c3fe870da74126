// Queue-wait times that the reports subtract from host round-trips.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "log/LogEventFields.h"
#include "log/ProfileEvent.h"
#include "stats/StatSummary.h"

namespace vek {
namespace profiling {

// Reported once for each queue-wait list that could not be built.
constexpr const char* kQueueWaitDiagnostic =
    "Multiple queue-wait time events found per execution. Cannot calculate Host Round-Trip "
    "excluding queue wait\n";

struct QueueWaitMatch {
    size_t count = 0;
    uint64_t lastPayload = 0;
};

// The queue-wait events of one call: top-level events with the queue-wait
// identifier and such direct children of top-level events. Deeper events
// are not searched.
QueueWaitMatch findQueueWaits(EventSpan events);
// The same for an execution's events read in place from the log; its
// initialisation events are not among them.
QueueWaitMatch findQueueWaits(const LogEventVector* events);

// One series per graph with the queue wait of every call. When a call has
// no queue wait or several, `series` is left empty and false is returned.
bool collectQueueWaitSeries(const std::vector<GraphSamples>& graphs,
                            std::vector<QueueWaitSeries>& series);

// collectQueueWaitSeries taken call by call, as the calls are read: the
// series of the graph at each position of a per-graph list.
class QueueWaitSeriesBuilder {
public:
    // Adds the queue wait of one call of the graph at `position` (graphs
    // come in at the end of the list, one position after the other), as
    // findQueueWaits found it. A call with no queue wait or several gives up
    // the whole list.
    void add(size_t position, const std::string& graphName, QueueWaitMatch match);
    // What collectQueueWaitSeries gives for the calls added; the builder
    // starts afresh.
    bool finish(std::vector<QueueWaitSeries>& series);

private:
    std::vector<QueueWaitSeries> series_;
    bool abandoned_ = false;
};

// The queue wait of each summary's events. When one summary has no queue
// wait or several, `values` is left empty and false is returned.
bool collectQueueWaitValues(const std::vector<GraphSummary>& summaries,
                            std::vector<QueueWaitValue>& values);

}  // namespace profiling
}  // namespace vek
