// A host's logger gets timestamps in nanoseconds since it was registered. (Its
// levels and dropped messages: see the plug-in test and every LogCapture.)
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "logging/Log.h"
#include "support/LogCapture.h"

namespace vek::profiling {
namespace {

TEST(LoggerTest, TimestampIsNanosecondsSinceTheLoggerWasCreated) {
    testlog::LogCapture capture(5);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    vekLog(kLogError, "late");
    ASSERT_EQ(capture.messages().size(), 1u);
    EXPECT_GE(capture.messages()[0].timestampNs, 2000000u);
    EXPECT_LT(capture.messages()[0].timestampNs, 2000000000u);
}

}  // namespace
}  // namespace vek::profiling
