#include "reader/VekProfileLogReader.h"
#include "stats/Statistics.h"

namespace vek {
namespace profiling {

// Not implemented yet: the statistics step lands with the aggregation code.
void VekProfileLogReader::buildStatistics() {}

// Not implemented yet: the statistics land with the aggregation code.
StatSummary averageOf(const std::vector<ExecutionSample>&) { return StatSummary(); }
StatSummary maximumOf(const std::vector<ExecutionSample>&) { return StatSummary(); }
StatSummary minimumOf(const std::vector<ExecutionSample>&) { return StatSummary(); }
void mergeEvents(std::vector<ProfileEvent>&, const std::vector<ProfileEvent>&) {}
void divideBySampleCount(std::vector<ProfileEvent>&) {}

}  // namespace profiling
}  // namespace vek
