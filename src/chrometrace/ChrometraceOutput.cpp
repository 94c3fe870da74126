#include "reader/VekProfileLogReaderChrometrace.h"

namespace vek {
namespace profiling {

VekProfileLogReaderChrometrace::~VekProfileLogReaderChrometrace() = default;

// Not implemented yet: the trace output lands with the trace builder.
bool VekProfileLogReaderChrometrace::writeOutput(const std::string&) { return false; }
void VekProfileLogReaderChrometrace::writeBackendSection(std::ostream&,
                                                         const std::vector<ProfileEvent>&,
                                                         uint64_t) {}

}  // namespace profiling
}  // namespace vek
