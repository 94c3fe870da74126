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
    // Keeps copies of what it needs of the calls' events (texts interned in
    // `texts`), so that a call's events may go as soon as it is added.
    explicit AverageBuilder(EventStore& texts) : merger_(texts) {}

    void add(const ExecutionSample& sample) { add(sample.netRunUs, sample.auxValue, sample.events); }
    void add(uint64_t netRunUs, uint64_t auxValue, EventSpan events) {
        sum_ += netRunUs;
        // Zero-length calls add nothing to the sum and stay out of the divisor.
        if (netRunUs > 0) ++nonZero_;
        auxValue_ = auxValue;  // the last call's remains
        merger_.merge(events);
        ++count_;
    }

    // How many calls were added.
    size_t count() const { return count_; }

    // The mean duration over the non-zero calls (truncating) and the merged
    // events divided by their sample counts; the builder is left empty.
    StatSummary finish();

private:
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
