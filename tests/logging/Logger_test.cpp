#include "logging/Logger.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "logging/Log.h"
#include "support/LogCapture.h"

namespace vek {
namespace profiling {
namespace {

using testlog::LogCapture;

TEST(LoggerTest, DeliversMessagesUpToTheMaximumLevel) {
    for (const int32_t maxLevel : {0, 3, 5}) {
        SCOPED_TRACE(maxLevel);
        LogCapture capture(maxLevel);
        for (int32_t level = kLogError; level <= kLogDebug; ++level) vekLog(level, "level %d", level);
        ASSERT_EQ(capture.messages().size(), static_cast<size_t>(maxLevel));
        for (int32_t level = kLogError; level <= maxLevel; ++level) {
            EXPECT_TRUE(capture.contains("level " + std::to_string(level), level));
        }
    }
}

void noCallback(const char*, uint32_t, uint64_t, va_list) { ADD_FAILURE() << "called"; }

TEST(LoggerTest, NullCallbackOrNoLoggerDropsSilently) {
    LogCapture capture(5);
    registerLogger(0x1234, nullptr, 5);
    vekLog(kLogError, "dropped");
    EXPECT_EQ(getLogger(0x5555), nullptr);  // never registered
    EXPECT_EQ(capture.count("dropped"), 0u);
    // Nor is a callback called for a level above its maximum.
    logMessage(std::make_shared<Logger>(&noCallback, 0), kLogError, "", 0, "nothing");
}

TEST(LoggerTest, LogMessageIgnoresTextAndNumberAndFiltersByLevel) {
    LogCapture capture(2);
    auto logger = getLogger(libraryLogHandle());
    ASSERT_NE(logger, nullptr);
    logMessage(logger, kLogWarn, "ignored", 42, "value %d", 7);
    logMessage(logger, kLogInfo, "", 0, "too verbose");
    EXPECT_TRUE(capture.contains("value 7", kLogWarn));
    EXPECT_EQ(capture.count("too verbose"), 0u);
}

TEST(LoggerTest, TimestampIsNanosecondsSinceTheLoggerWasCreated) {
    LogCapture capture(5);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    vekLog(kLogError, "late");
    ASSERT_EQ(capture.messages().size(), 1u);
    EXPECT_GE(capture.messages()[0].timestampNs, 2000000u);
    EXPECT_LT(capture.messages()[0].timestampNs, 2000000000u);
}

}  // namespace
}  // namespace profiling
}  // namespace vek
