// The per-graph summaries of one kind of timed call, folded in call by call
// as the log is read, so that no call has to be kept: the running average,
// and the events of the longest and of the shortest call so far. What
// finish() gives is what the statistics step gives for the same calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "log/EventStore.h"
#include "log/GraphIndex.h"
#include "log/LogEventFields.h"
#include "log/MessageStores.h"
#include "log/ProfileEvent.h"
#include "stats/AverageBuilder.h"
#include "stats/StatSummary.h"
#include "stats/Statistics.h"

namespace vek {
namespace profiling {

class SummaryStream {
public:
    // What the average keeps of the calls' events is converted or copied
    // into `lasting`, the reader's store; the longest and the shortest calls
    // keep the message store their events were converted into.
    SummaryStream(MessageStores& messages, EventStore& lasting)
        : messages_(&messages), lasting_(&lasting) {}

    // Also keeps a copy of every top-level object event of the calls, for
    // the object files.
    void keepObjectEvents(bool keep) { keepObjectEvents_ = keep; }

    // Where a call went: its graph's position in first-seen order, and
    // whether it is now the longest or the shortest call of its graph.
    struct Fold {
        size_t position = 0;
        bool longest = false;
        bool shortest = false;
    };

    // Folds one call of `graphName` into its graph's average, reading its
    // events in place (names interned in `names`; with `withoutInitEvents`,
    // the top-level initialisation events passed over). When the call is
    // the longest or the shortest so far, choose() must follow before the
    // next call.
    Fold fold(const std::string& graphName, uint64_t netRunUs, uint64_t auxValue,
              const LogEventVector* events, EventStore& names, bool withoutInitEvents);
    // Gives the call just folded in, its events converted into the current
    // message store, to the maximum and the minimum it became.
    void choose(const Fold& fold, EventSpan events);

    // The average, maximum and minimum of every graph, in first-seen order;
    // the stores their events refer to are added to `stores`, the kept
    // object events (graph by graph, in log order) to `objectEvents`. The
    // stream starts afresh.
    SummaryLists finish(std::vector<std::shared_ptr<EventStore>>& stores,
                        std::vector<ProfileEvent>* objectEvents = nullptr);

private:
    // The call that is the longest or the shortest so far: its top-level
    // events, whose children, texts and bytes are in the store it holds.
    struct ChosenCall {
        uint64_t netRunUs = 0;
        uint64_t auxValue = 0;
        std::vector<ProfileEvent> events;
        std::shared_ptr<EventStore> store;
    };
    struct GraphFold {
        std::string graphName;
        AverageBuilder average;
        ChosenCall maximum;  // starts at 0: a call of 0 us is taken
        ChosenCall minimum{kNoMinimum, 0, {}, nullptr};
        std::vector<ProfileEvent> objectEvents;
    };
    // The call folded in last.
    uint64_t foldedNetRunUs_ = 0;
    uint64_t foldedAuxValue_ = 0;

    void take(ChosenCall& chosen, EventSpan events);

    MessageStores* messages_;
    EventStore* lasting_;
    bool keepObjectEvents_ = false;
    std::vector<GraphFold> graphs_;
    GraphIndex index_;
};

}  // namespace profiling
}  // namespace vek
