// The logger registry: loggers looked up by a 64-bit handle, each handing
// the library's messages (format and arguments, unformatted) to the host.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <memory>

#include "VekChrometraceProfilingReader.h"

namespace vek {
namespace profiling {

struct Logger {
    Logger(LogCallback callback, int32_t maxLevel);

    LogCallback callback;
    std::atomic<int32_t> maxLevel;
    uint64_t startTimeNs;  // nanoseconds since 1970 at creation
};

// Nanoseconds since 1970-01-01 UTC, taken from the system clock in
// 100-nanosecond ticks.
uint64_t systemTimeNs();

// The logger registered under `handle`, or an empty pointer.
std::shared_ptr<Logger> getLogger(uint64_t handle);

// The handle under which the library looks up its logger.
uint64_t libraryLogHandle();

// Hands one message to the logger's callback when its level is <= the
// logger's maximum. `text` and `number` are ignored (call sites pass "", 0).
void logMessage(const std::shared_ptr<Logger>& logger, int32_t level, const char* text,
                uint64_t number, const char* format, ...);
void logMessageV(const std::shared_ptr<Logger>& logger, int32_t level, const char* format,
                 va_list arguments);

}  // namespace profiling
}  // namespace vek
