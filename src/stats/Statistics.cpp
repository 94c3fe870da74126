#include "stats/Statistics.h"

#include <cassert>
#include <cstddef>

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

StatSummary averageOf(const std::vector<ExecutionSample>& samples) {
    StatSummary summary;
    if (samples.empty()) return summary;
    uint64_t sum = 0;
    uint64_t nonZero = 0;
    EventMerger merger(summary.events);
    for (const ExecutionSample& sample : samples) {
        sum += sample.netRunUs;
        // Zero-length calls add nothing to the sum and stay out of the divisor.
        if (sample.netRunUs > 0) ++nonZero;
        summary.auxValue = sample.auxValue;
        merger.merge(sample.events);
    }
    summary.netRunUs = nonZero == 0 ? 0 : sum / nonZero;
    divideBySampleCount(summary.events);
    return summary;
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

void mergeEvents(std::vector<ProfileEvent>& accumulated, const std::vector<ProfileEvent>& incoming) {
    EventMerger(accumulated).merge(incoming);
}

void divideBySampleCount(std::vector<ProfileEvent>& events) {
    for (ProfileEvent& event : events) {
        if (event.value.dataType == kDataTypeUInt64) {
            // Every accumulated event counts at least the call it came from;
            // a zero count is a fault of the caller and is left undivided.
            assert(event.sampleCount != 0);
            if (event.sampleCount != 0) event.value.payload /= event.sampleCount;
        }
        divideBySampleCount(event.children);
    }
}

}  // namespace profiling
}  // namespace vek
