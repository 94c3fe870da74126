#include "reader/VekProfileLogReader.h"

namespace vek {
namespace profiling {

// Not implemented yet: object files land with the reports.
void VekProfileLogReader::writeObjectEventFile(const ProfileEvent&) {}

}  // namespace profiling
}  // namespace vek
