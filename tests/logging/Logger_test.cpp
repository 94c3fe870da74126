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
    LogCapture capture(3);
    vekLog(kLogError, "error %d", 1);
    vekLog(kLogWarn, "warn %s", "w");
    vekLog(kLogInfo, "info");
    vekLog(kLogVerbose, "verbose");
    vekLog(kLogDebug, "debug");
    ASSERT_EQ(capture.messages().size(), 3u);
    EXPECT_TRUE(capture.contains("error 1", kLogError));
    EXPECT_TRUE(capture.contains("warn w", kLogWarn));
    EXPECT_TRUE(capture.contains("info", kLogInfo));
}

TEST(LoggerTest, LevelZeroReceivesNothingAndFiveEverything) {
    {
        LogCapture capture(0);
        vekLog(kLogError, "error");
        EXPECT_TRUE(capture.messages().empty());
    }
    LogCapture capture(5);
    for (int32_t level = kLogError; level <= kLogDebug; ++level) vekLog(level, "m");
    EXPECT_EQ(capture.count("m"), 5u);
}

TEST(LoggerTest, NullCallbackOrNoLoggerDropsSilently) {
    LogCapture capture(5);
    registerLogger(0x1234, nullptr, 5);
    vekLog(kLogError, "dropped");
    registerLogger(0x9999, nullptr, 5);
    EXPECT_EQ(getLogger(0x5555), nullptr);  // never registered
    EXPECT_EQ(capture.count("dropped"), 0u);
}

void noCallback(const char*, uint32_t, uint64_t, va_list) {}

TEST(LoggerTest, LogMessageIgnoresTextAndNumberAndFiltersByLevel) {
    LogCapture capture(2);
    auto logger = getLogger(libraryLogHandle());
    ASSERT_NE(logger, nullptr);
    logMessage(logger, kLogWarn, "ignored", 42, "value %d", 7);
    logMessage(logger, kLogInfo, "", 0, "too verbose");
    EXPECT_TRUE(capture.contains("value 7", kLogWarn));
    EXPECT_EQ(capture.count("too verbose"), 0u);
    auto silent = std::make_shared<Logger>(&noCallback, 0);
    logMessage(silent, kLogError, "", 0, "nothing");  // level above maximum: no call
}

TEST(LoggerTest, TimestampIsNanosecondsSinceTheLoggerWasCreated) {
    LogCapture capture(5);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    vekLog(kLogError, "late");
    ASSERT_EQ(capture.messages().size(), 1u);
    const uint64_t ns = capture.messages()[0].timestampNs;
    EXPECT_GE(ns, 2000000u);
    EXPECT_LT(ns, 2000000000u);
}

TEST(LoggerTest, LevelNamesCoverTheFiveLevels) {
    ASSERT_EQ(logLevelNames.size(), 5u);
    EXPECT_EQ(logLevelNames.at(kLogError), "VEK_LOG_LEVEL_ERROR");
    EXPECT_EQ(logLevelNames.at(kLogDebug), "VEK_LOG_LEVEL_DEBUG");
}

}  // namespace
}  // namespace profiling
}  // namespace vek
