#include "stats/Statistics.h"

#include <cassert>
#include <cstddef>
#include <utility>

#include "stats/AverageBuilder.h"
#include "stats/EventMerger.h"

namespace vek {
namespace profiling {
namespace {

constexpr size_t kNoSample = static_cast<size_t>(-1);

// The summary of the chosen sample: its duration, its auxValue and a deep
// copy of its events. Copying only the winner keeps maximum and minimum
// linear in the size of the list.
StatSummary summaryOfSample(const std::vector<ExecutionSample>& samples, size_t chosen,
                            uint64_t netRunUs) {
    StatSummary summary;
    summary.netRunUs = netRunUs;
    if (chosen != kNoSample) {
        summary.auxValue = samples[chosen].auxValue;
        summary.events = samples[chosen].events;
    }
    return summary;
}

}  // namespace

StatSummary AverageBuilder::finish() {
    StatSummary summary;
    summary.netRunUs = nonZero_ == 0 ? 0 : sum_ / nonZero_;
    summary.auxValue = auxValue_;
    summary.events = merger_.take();
    divideBySampleCount(summary.events);
    *this = AverageBuilder();
    return summary;
}

StatSummary averageOf(const std::vector<ExecutionSample>& samples) {
    AverageBuilder average;
    for (const ExecutionSample& sample : samples) average.add(sample);
    return average.finish();
}

StatSummary maximumOf(const std::vector<ExecutionSample>& samples) {
    uint64_t maximum = 0;
    size_t chosen = kNoSample;
    for (size_t i = 0; i < samples.size(); ++i) {
        // Ties go to the later sample; since the running maximum starts at 0,
        // a list of zero durations yields its last sample.
        if (samples[i].netRunUs >= maximum) {
            maximum = samples[i].netRunUs;
            chosen = i;
        }
    }
    return summaryOfSample(samples, chosen, maximum);
}

StatSummary minimumOf(const std::vector<ExecutionSample>& samples) {
    if (samples.empty()) return StatSummary();
    uint64_t minimum = kNoMinimum;
    size_t chosen = kNoSample;
    for (size_t i = 0; i < samples.size(); ++i) {
        const uint64_t netRunUs = samples[i].netRunUs;
        if (netRunUs == 0) continue;  // calls that took no time are not candidates
        if (netRunUs <= minimum) {
            minimum = netRunUs;
            chosen = i;
        }
    }
    return summaryOfSample(samples, chosen, minimum);
}

void mergeEvents(std::vector<ProfileEvent>& accumulated,
                 const std::vector<ProfileEvent>& incoming) {
    EventMerger merger(std::move(accumulated));
    merger.merge(incoming);
    accumulated = merger.take();
}

void divideBySampleCount(std::vector<ProfileEvent>& events) {
    for (ProfileEvent& event : events) {
        if (event.value.dataType == kDataTypeUInt64) {
            // Every accumulated event counts at least the call it came from;
            // a zero count is a fault of the caller and is left undivided.
            assert(event.sampleCount != 0);
            if (event.sampleCount != 0) event.value.payload /= event.sampleCount;
        }
        // The children become the event's own before they change.
        if (!event.children.empty()) divideBySampleCount(event.children.edit());
    }
}

}  // namespace profiling
}  // namespace vek
