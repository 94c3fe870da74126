#include "reader/VekProfileLogReader.h"

namespace vek {
namespace profiling {

// Not implemented yet: header copy lands with the loader.
void VekProfileLogReader::saveHeader() {}

// Not implemented yet: header text lands with the loader.
std::string VekProfileLogReader::printHeader() { return std::string(); }

}  // namespace profiling
}  // namespace vek
