#include "reader/VekProfileLogReader.h"

namespace vek {
namespace profiling {

// Not implemented yet: loading lands with the loader.
bool VekProfileLogReader::loadLog(bool flag) {
    loadFlag = flag;
    return false;
}

// Not implemented yet: loading lands with the loader.
bool VekProfileLogReader::readNextMessage() {
    reachedEof = true;
    return false;
}

}  // namespace profiling
}  // namespace vek
