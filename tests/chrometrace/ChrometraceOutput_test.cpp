#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <utility>
#include <string>
#include <vector>

#include "chrometrace/LintingRecords.h"
#include "support/Golden.h"
#include "support/LogCapture.h"
#include "support/LogWriter.h"  // TempDir, readFile

namespace vek {
namespace profiling {
namespace {

using testlinting::event;
using testlinting::graphWithOps;
using testlinting::LintingReader;
using testlinting::OpSpec;
using testlinting::opRecord;
using testlog::readFile;

// writeOutput's result and what it printed.
std::pair<bool, std::string> writeOutput(VekProfileLogReaderChrometrace& reader, const std::string& path) {
    testing::internal::CaptureStdout();
    const bool result = reader.writeOutput(path);
    return {result, testing::internal::GetCapturedStdout()};
}

TEST(ChrometraceOutputTest, RefusedPathsWriteAndPrintNothing) {
    testlog::TempDir dir;
    const std::string missing = dir.file("missing/trace.json");
    const struct {
        std::string path;
        std::string message;
    } cases[] = {
        {"", "Output chrometraceFile not provided."},
        {missing, "Invalid output chrometraceFile: [" + missing + "]"},
        // A failed write is a failure too, not a short file presented as success.
        {"/dev/full", "Invalid output chrometraceFile: [/dev/full]"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        if (c.path == "/dev/full" && !std::filesystem::exists(c.path)) continue;
        LintingReader chrome;
        testlog::LogCapture capture;
        EXPECT_EQ(writeOutput(chrome.reader, c.path), std::make_pair(false, std::string()));
        EXPECT_TRUE(capture.contains(c.message, 1));
    }
}

// Hosts that write the trace to a stream (compressed, or into a temporary
// file) get the very bytes of the file and of the summary.
TEST(ChrometraceOutputTest, StreamedTraceIsTheFileByteForByte) {
    testlog::TempDir dir;
    const std::string path = dir.file("trace.json");
    const std::vector<GraphSummary> cases[] = {
        {}, {graphWithOps("g0", {opRecord(OpSpec{"conv \"1\"", 10, 20, 30, 40, 5, {"dma", ""}, {"w"}}),
                                 opRecord(OpSpec{"relu", 0, 7, 0, 0, 0, {}, {}})})}};
    for (const auto& graphs : cases) {
        LintingReader chrome(graphs);
        std::ostringstream trace;
        std::ostringstream summary;
        ASSERT_TRUE(writeTrace(&chrome.reader, trace, summary, TraceFormat::Exact));
        // A second call rewrites the file rather than appending to it.
        for (int call = 0; call < 2; ++call) {
            EXPECT_EQ(writeOutput(chrome.reader, path), std::make_pair(true, summary.str()));
            EXPECT_EQ(readFile(path), trace.str());
        }
    }
    EXPECT_TRUE(testlog::matchesGolden(readFile(path), "chrometrace/exact_trace.json"));
    LintingReader empty;
    EXPECT_TRUE(writeOutput(empty.reader, path).first);
    EXPECT_EQ(readFile(path), "{\n    \"traceEvents\": []\n}\n");

    // Only the chrome-trace reader draws traces.
    VekProfileLogReader plain(dir.file("none.bin"), VisibilityLevel(1));
    std::ostringstream none;
    std::ostringstream summary;
    EXPECT_FALSE(writeTrace(&plain, none, summary, TraceFormat::Exact));
    EXPECT_EQ(none.str(), "");
}

ProfileEvent withUnit(ProfileEvent e, uint32_t unit) {
    e.unit = unit;
    return e;
}

// The reserved identifiers 9000..9009 are hidden with their children; the
// doubled blank between value and unit is kept.
TEST(ChrometraceBackendListingTest, HidesTheReservedRangeAndKeepsTheDoubledBlank) {
    const std::vector<ProfileEvent> events = {
        withUnit(event(0, "Accelerator", 12,
                       {event(kResourceMaskIdentifier, "Resources", 5),
                        event(kOpBackgroundNameIdentifier, "item_a", 99),
                        event(9005, "hidden", 1, {event(0, "under hidden", 1)}),
                        withUnit(event(0, "Conv", 7, {event(0, "deep", 4)}), kUnitNone)}),
                 kUnitCycles),
        event(9000, "first hidden", 1),
        event(9009, "last hidden", 1),
        withUnit(event(9010, "edge", 1), kUnitCount),
        withUnit(event(8999, "low", 2), kUnitBytes),
        event(kWaitBackgroundNameIdentifier, "names", 3),
        event(kResourceMaskIdentifier, "mask", 0x103),
    };
    LintingReader chrome;
    VekProfileLogReader& base = chrome.reader;  // reached through the virtual slot
    std::ostringstream out;
    base.writeBackendSection(out, events, 1);  // depth 1 is what the summary passes
    // Depth 0 wraps the top-level names only.
    base.writeBackendSection(out, {events[0].children[1], events[3], events[5]}, 0);
    EXPECT_TRUE(testlog::matchesGolden(out.str(), "chrometrace/backend_listing.txt"));
}

}  // namespace
}  // namespace profiling
}  // namespace vek
