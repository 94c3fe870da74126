// What a summaries-only load holds while it reads, in place of the per-graph
// calls: the message being read, and the running summaries of each kind of
// per-graph call.
#pragma once

#include <vector>

#include "log/EventStore.h"
#include "log/ProfileEvent.h"
#include "stats/QueueWaits.h"
#include "stats/SummaryStream.h"

namespace vek {
namespace profiling {

struct StreamedSummaries {
    // `texts` is the reader's store, which outlives all of this.
    explicit StreamedSummaries(EventStore& texts)
        : executions(texts), applyBinarySections(texts), finalizeAfterUpdates(texts) {}

    // The events of the message being folded in, emptied before the next
    // one: its room is used again and again, never growing with the log.
    EventStore scratch;
    std::vector<ProfileEvent> events;

    SummaryStream executions;
    SummaryStream applyBinarySections;
    SummaryStream finalizeAfterUpdates;
    QueueWaitSeriesBuilder executionQueueWaits;
};

}  // namespace profiling
}  // namespace vek
