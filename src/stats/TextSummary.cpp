#include "reader/VekProfileLogReader.h"

namespace vek {
namespace profiling {

// Not implemented yet: the text summary lands with the reports.
bool VekProfileLogReader::writeOutput(const std::string&) { return false; }
void VekProfileLogReader::writeBackendSection(std::ostream&, const std::vector<ProfileEvent>&,
                                              uint64_t) {}
void VekProfileLogReader::printHeaderSection(std::ostream&) {}
void VekProfileLogReader::printLeadingSections(std::ostream&) {}
void VekProfileLogReader::printExecuteAverage(std::ostream&) {}

}  // namespace profiling
}  // namespace vek
