// The per-graph summaries of one kind of timed call, folded in call by call
// as the log is read, so that no call has to be kept: the running average,
// and copies of the events of the longest and of the shortest call so far.
// What finish() gives is what the statistics step gives for the same calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "log/EventStore.h"
#include "log/GraphIndex.h"
#include "log/ProfileEvent.h"
#include "stats/AverageBuilder.h"
#include "stats/StatSummary.h"
#include "stats/Statistics.h"

namespace vek {
namespace profiling {

class SummaryStream {
public:
    // What is kept of the calls' events refers only to `texts` (for names,
    // details and string values) and to memory of its own.
    explicit SummaryStream(EventStore& texts) : texts_(&texts) {}

    // Also keeps a copy of every top-level object event of the calls, for
    // the object files.
    void keepObjectEvents(bool keep) { keepObjectEvents_ = keep; }

    // Folds in one call of `graphName`; its events are not needed once add
    // returns. Returns the graph's position in first-seen order.
    size_t add(const std::string& graphName, uint64_t netRunUs, uint64_t auxValue,
               EventSpan events);

    // The average, maximum and minimum of every graph, in first-seen order,
    // and the kept object events, graph by graph and in log order within a
    // graph; the stream starts afresh.
    SummaryLists finish(std::vector<ProfileEvent>* objectEvents = nullptr);

private:
    // The call that is the longest or the shortest so far.
    struct ChosenCall {
        uint64_t netRunUs = 0;
        uint64_t auxValue = 0;
        std::vector<ProfileEvent> events;
    };
    struct GraphFold {
        std::string graphName;
        AverageBuilder average;
        ChosenCall maximum;  // starts at 0: a call of 0 us is taken
        ChosenCall minimum{kNoMinimum, 0, {}};
        std::vector<ProfileEvent> objectEvents;
    };

    EventStore* texts_;
    bool keepObjectEvents_ = false;
    std::vector<GraphFold> graphs_;
    GraphIndex index_;
};

}  // namespace profiling
}  // namespace vek
