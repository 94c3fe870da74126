// Average, maximum and minimum of a graph's timed calls, with merged events.
#pragma once

#include <vector>

#include "log/ProfileEvent.h"
#include "stats/StatSummary.h"

namespace vek {
namespace profiling {

// Largest u64: the minimum of a list whose durations are all 0.
constexpr uint64_t kNoMinimum = 18446744073709551615ull;

// Mean duration over the non-zero samples (truncating), events merged by
// name and divided by their sample counts. An empty list gives all zeros.
StatSummary averageOf(const std::vector<ExecutionSample>& samples);
// Largest duration; ties go to the later sample, whose events are taken.
StatSummary maximumOf(const std::vector<ExecutionSample>& samples);
// Smallest non-zero duration; ties go to the later sample. All zero gives
// kNoMinimum with no events, an empty list gives 0.
StatSummary minimumOf(const std::vector<ExecutionSample>& samples);

// Merges `incoming` into `accumulated`: an event joins the first accumulated
// event of the same name (values summed as u64, sampleCount + 1, children
// merged recursively); unmatched events are appended unless they are objects.
void mergeEvents(std::vector<ProfileEvent>& accumulated, const std::vector<ProfileEvent>& incoming);
// Divides every u64 value by its event's sampleCount, at every depth.
void divideBySampleCount(std::vector<ProfileEvent>& events);

}  // namespace profiling
}  // namespace vek
