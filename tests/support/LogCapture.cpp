#include "support/LogCapture.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "VekChrometraceProfilingReader.h"

namespace vek::profiling::testlog {
namespace {

constexpr uint64_t kCaptureHandle = 0x7e57;
std::mutex capturedMutex;
std::vector<CapturedMessage> captured;

void collect(const char* format, uint32_t level, uint64_t timestamp, va_list arguments) {
    va_list measure;
    va_copy(measure, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    std::string text(static_cast<size_t>(std::max(length, 0)), '\0');
    if (length > 0) std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    std::lock_guard<std::mutex> lock(capturedMutex);
    captured.push_back(CapturedMessage{level, std::move(text), timestamp});
}

size_t matching(const std::string& text, int64_t level) {
    std::lock_guard<std::mutex> lock(capturedMutex);
    return static_cast<size_t>(std::count_if(captured.begin(), captured.end(), [&](const CapturedMessage& message) {
        return message.text == text && (level < 0 || message.level == level);
    }));
}

}  // namespace

LogCapture::LogCapture(int32_t maxLevel) {
    clear();
    registerLogger(kCaptureHandle, &collect, maxLevel);
}

LogCapture::~LogCapture() { registerLogger(kCaptureHandle, nullptr, 0); }

const std::vector<CapturedMessage>& LogCapture::messages() const { return captured; }
bool LogCapture::contains(const std::string& text, uint32_t level) const { return matching(text, level) > 0; }
size_t LogCapture::count(const std::string& text) const { return matching(text, -1); }

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(capturedMutex);
    captured.clear();
}

}  // namespace vek::profiling::testlog
