#include "reader/VekProfileLogReader.h"

namespace vek {
namespace profiling {

// Not implemented yet: the CSV export lands with the reports.
void VekProfileLogReader::writeCsvRows(std::ostream&, std::vector<ProfileEvent>, uint64_t,
                                       const std::string&) {}
void VekProfileLogReader::writeCsvExport(std::ostream&) {}
void VekProfileLogReader::writeCsvHeaderRows(std::ostream&) {}

}  // namespace profiling
}  // namespace vek
