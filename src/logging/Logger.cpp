#include "logging/Logger.h"

#include <chrono>
#include <mutex>
#include <string>
#include <unordered_map>

#include "logging/Log.h"

namespace vek {
namespace profiling {
namespace {

struct LoggerRegistry {
    LoggerRegistry() {
        loggers.max_load_factor(1.0f);
        loggers.rehash(8);
    }
    std::mutex mutex;
    std::unordered_map<uint64_t, std::shared_ptr<Logger>> loggers;
    uint64_t libraryHandle = 0;
};

LoggerRegistry& registry() {
    static LoggerRegistry instance;
    return instance;
}

}  // namespace

Logger::Logger(LogCallback callback_, int32_t maxLevel_)
    : callback(callback_), maxLevel(maxLevel_), startTimeNs(systemTimeNs()) {}

uint64_t systemTimeNs() {
    using Ticks = std::chrono::duration<int64_t, std::ratio<1, 10000000>>;
    const auto ticks = std::chrono::duration_cast<Ticks>(
        std::chrono::system_clock::now().time_since_epoch());
    return static_cast<uint64_t>(ticks.count()) * 100u;
}

std::shared_ptr<Logger> getLogger(uint64_t handle) {
    LoggerRegistry& reg = registry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    const auto found = reg.loggers.find(handle);
    return found == reg.loggers.end() ? std::shared_ptr<Logger>() : found->second;
}

uint64_t libraryLogHandle() {
    LoggerRegistry& reg = registry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    return reg.libraryHandle;
}

void registerLogger(uint64_t handle, LogCallback callback, int32_t maxLevel) {
    auto logger = std::make_shared<Logger>(callback, maxLevel);
    LoggerRegistry& reg = registry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    reg.loggers[handle] = std::move(logger);
    reg.libraryHandle = handle;
}

void logMessageV(const std::shared_ptr<Logger>& logger, int32_t level, const char* format,
                 va_list arguments) {
    if (!logger || logger->callback == nullptr ||
        level > logger->maxLevel.load(std::memory_order_acquire)) {
        return;
    }
    const std::string ownFormat(format);
    const uint64_t timestamp = systemTimeNs() - logger->startTimeNs;
    logger->callback(ownFormat.c_str(), static_cast<uint32_t>(level), timestamp, arguments);
}

void logMessage(const std::shared_ptr<Logger>& logger, int32_t level, const char* /*text*/,
                uint64_t /*number*/, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    logMessageV(logger, level, format, arguments);
    va_end(arguments);
}

void vekLog(int32_t level, const char* format, ...) {
    std::shared_ptr<Logger> logger = getLogger(libraryLogHandle());
    if (!logger || logger->maxLevel.load(std::memory_order_acquire) < level) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    logMessageV(logger, level, format, arguments);
    va_end(arguments);
}

}  // namespace profiling
}  // namespace vek
