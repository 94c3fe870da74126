// The diff view: per graph, the NetRun average before and after, then the
// ops that changed, largest change first.
#pragma once

#include "VekChrometraceProfilingReader.h"
#include "views/ViewTable.h"

namespace vek {
namespace profiling {

// Whether an op is shown under the threshold: added and removed ops always
// are, others when they changed by at least the threshold (an op without a
// percentage, from a base of 0, when it changed at all).
bool passesThreshold(const OpChange& op, double thresholdPercent);

Table diffTable(const LogDiff& diff, const DiffViewOptions& options);

}  // namespace profiling
}  // namespace vek
