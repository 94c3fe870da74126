#include "reader/VekProfileLogReader.h"

namespace vek {
namespace profiling {

VekProfileLogReader::VekProfileLogReader(const std::string& path, VisibilityLevel level)
    : visibilityLevel(level), logFilePath(path) {
    contextBinaryCalls.max_load_factor(1.0f);
    contextBinaryCalls.rehash(8);
    contextSectionCalls.max_load_factor(1.0f);
    contextSectionCalls.rehash(8);
}

VekProfileLogReader::~VekProfileLogReader() = default;

bool VekProfileLogReader::isAvailable() { return true; }

}  // namespace profiling
}  // namespace vek
