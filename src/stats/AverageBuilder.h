// The average of a graph's timed calls, taken one call at a time, so that the
// loader can fold each call in while its events are still fresh in the cache.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "log/ProfileEvent.h"
#include "stats/EventMerger.h"
#include "stats/StatSummary.h"

namespace vek {
namespace profiling {

class AverageBuilder {
public:
    AverageBuilder() = default;
    // For calls read in place from the log: what it keeps of their events is
    // converted into `lasting`, so that the log may go as soon as a call is
    // added.
    explicit AverageBuilder(EventStore& lasting) : merger_(lasting) {}

    void add(const ExecutionSample& sample) {
        countCall(sample.netRunUs, sample.auxValue);
        merger_.merge(sample.events);
    }
    // A call whose events are read in place from the log (EventMerger::merge);
    // needs the constructor above.
    void add(uint64_t netRunUs, uint64_t auxValue, const LogEventVector* events,
             EventStore& names, bool withoutInitEvents) {
        countCall(netRunUs, auxValue);
        merger_.merge(events, names, withoutInitEvents);
    }

    // How many calls were added.
    size_t count() const { return count_; }

    // The mean duration over the non-zero calls (truncating) and the merged
    // events divided by their sample counts; the builder is left empty.
    StatSummary finish();

private:
    void countCall(uint64_t netRunUs, uint64_t auxValue) {
        sum_ += netRunUs;
        // Zero-length calls add nothing to the sum and stay out of the divisor.
        if (netRunUs > 0) ++nonZero_;
        auxValue_ = auxValue;  // the last call's remains
        ++count_;
    }

    uint64_t sum_ = 0;
    uint64_t nonZero_ = 0;
    uint64_t auxValue_ = 0;
    size_t count_ = 0;
    EventMerger merger_;
};

// The averages that loading builds as it reads, one per graph of each
// per-graph list, in the list's order. The statistics step takes them over
// when they still account for every sample of their graph.
struct RunningAverages {
    std::vector<AverageBuilder> executions;
    std::vector<AverageBuilder> applyBinarySections;
    std::vector<AverageBuilder> finalizeAfterUpdates;
};

}  // namespace profiling
}  // namespace vek
