// The call site every library message goes through.
#pragma once

#include <cstdint>

#include "logging/LogLevels.h"

namespace vek {
namespace profiling {

// Looks up the library's logger, drops the message when there is none or its
// maximum level is below `level`, otherwise delivers it.
void vekLog(int32_t level, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 2, 3)))
#endif
    ;

}  // namespace profiling
}  // namespace vek
