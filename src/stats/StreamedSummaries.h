// What a summaries-only load holds while it reads, in place of the per-graph
// calls: the stores of the messages it still needs, and the running
// summaries of each kind of per-graph call.
#pragma once

#include <memory>
#include <vector>

#include "log/EventStore.h"
#include "log/MessageStores.h"
#include "log/ProfileEvent.h"
#include "stats/QueueWaits.h"
#include "stats/SummaryStream.h"

namespace vek {
namespace profiling {

struct StreamedSummaries {
    // `lasting` is the reader's store, which outlives all of this.
    explicit StreamedSummaries(EventStore& lasting)
        : executions(messages, lasting),
          applyBinarySections(messages, lasting),
          finalizeAfterUpdates(messages, lasting) {}

    MessageStores messages;
    // The top-level events of the message being folded in; the vector's
    // room serves every message.
    std::vector<ProfileEvent> events;
    // The store of the execution whose initialisation events are the
    // reader's initEvents.
    std::shared_ptr<EventStore> initEventsStore;

    SummaryStream executions;
    SummaryStream applyBinarySections;
    SummaryStream finalizeAfterUpdates;
    QueueWaitSeriesBuilder executionQueueWaits;
};

}  // namespace profiling
}  // namespace vek
