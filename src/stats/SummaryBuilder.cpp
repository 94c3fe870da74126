#include "reader/VekProfileLogReader.h"

namespace vek {
namespace profiling {

// Not implemented yet: the statistics step lands with the aggregation code.
void VekProfileLogReader::buildStatistics() {}

}  // namespace profiling
}  // namespace vek
