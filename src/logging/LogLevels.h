// Names of the diagnostic levels. Lower numbers are more severe.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

namespace vek {
namespace profiling {

enum LogLevel : int32_t {
    kLogError = 1,
    kLogWarn = 2,
    kLogInfo = 3,
    kLogVerbose = 4,
    kLogDebug = 5,
};

// Each translation unit that includes this header holds its own copy of the
// table; the copies are identical. The log call itself never consults it.
static const std::unordered_map<int32_t, std::string> logLevelNames = {
    {kLogError, "VEK_LOG_LEVEL_ERROR"},     {kLogWarn, "VEK_LOG_LEVEL_WARN"},
    {kLogInfo, "VEK_LOG_LEVEL_INFO"},       {kLogVerbose, "VEK_LOG_LEVEL_VERBOSE"},
    {kLogDebug, "VEK_LOG_LEVEL_DEBUG"},
};

}  // namespace profiling
}  // namespace vek
