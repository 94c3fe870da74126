#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <filesystem>
#include <fstream>
#include <iomanip>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

#include "chrometrace/LintingRecords.h"
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
using testlog::LogCapture;
using testlog::readFile;
using testlog::TempDir;

struct OutputRun {
    bool result;
    std::string stdoutText;
};

OutputRun runWriteOutput(VekProfileLogReaderChrometrace& reader, const std::string& path) {
    testing::internal::CaptureStdout();
    const bool result = reader.writeOutput(path);
    return OutputRun{result, testing::internal::GetCapturedStdout()};
}

TEST(ChrometraceOutputTest, RefusedPathsWriteAndPrintNothing) {
    TempDir dir;
    const struct {
        std::string path;
        std::string message;
    } cases[] = {
        {"", "Output chrometraceFile not provided."},
        {dir.file("missing/trace.json"),
         "Invalid output chrometraceFile: [" + dir.file("missing/trace.json") + "]"},
        // A failed write is a failure too, not a short file presented as success.
        {"/dev/full", "Invalid output chrometraceFile: [/dev/full]"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        if (c.path == "/dev/full" && !std::filesystem::exists(c.path)) continue;
        LintingReader chrome;
        LogCapture capture;
        const OutputRun run = runWriteOutput(chrome.reader, c.path);
        EXPECT_FALSE(run.result);
        EXPECT_EQ(run.stdoutText, "");
        EXPECT_TRUE(capture.contains(c.message, 1));
    }
}

TEST(ChrometraceOutputTest, NoGraphsWriteAnEmptyTraceAndTheSummary) {
    TempDir dir;
    const std::string path = dir.file("trace.json");
    LintingReader chrome;
    // The three summary sections, in the order and formatting of the trace writer.
    std::ostringstream summary;
    summary.imbue(std::locale::classic());
    summary << std::fixed << std::setprecision(0);
    chrome.reader.printHeaderSection(summary);
    chrome.reader.printLeadingSections(summary);
    chrome.reader.printExecuteAverage(summary);

    const OutputRun run = runWriteOutput(chrome.reader, path);
    EXPECT_TRUE(run.result);
    EXPECT_EQ(readFile(path), "{\n    \"traceEvents\": []\n}\n");
    EXPECT_EQ(run.stdoutText, summary.str());
    // A second call rewrites the file rather than appending to it.
    EXPECT_TRUE(runWriteOutput(chrome.reader, path).result);
    EXPECT_EQ(readFile(path), "{\n    \"traceEvents\": []\n}\n");
}

TEST(ChrometraceOutputTest, RefusedBuildEmptiesTheFileAndPrintsNothing) {
    TempDir dir;
    const std::string path = dir.file("trace.json");
    std::ofstream(path) << "old trace";
    ProfileEvent incomplete = opRecord(OpSpec{"late", 1, 1, 1, 1, 1, {}, {}});
    incomplete.children.pop_back();  // drops the 5004 child
    LintingReader chrome({graphWithOps("g0", {opRecord(OpSpec{"ok", 1, 2, 3, 4, 5, {}, {}})}),
                          graphWithOps("g1", {incomplete})});
    LogCapture capture;
    const OutputRun run = runWriteOutput(chrome.reader, path);
    EXPECT_FALSE(run.result);
    EXPECT_EQ(run.stdoutText, "");
    EXPECT_EQ(readFile(path), "");
    EXPECT_TRUE(capture.contains(
        "Log file contains incompatible data! Please provide log file generated using the "
        "linting profile!",
        1));
}

// Hosts that write the trace to a stream (compressed, or into a temporary
// file) get the very bytes of the file and of the summary.
TEST(ChrometraceOutputTest, StreamedTraceIsTheFileByteForByte) {
    TempDir dir;
    LintingReader chrome({graphWithOps("g0", {opRecord(OpSpec{"conv \"1\"", 10, 20, 30, 40, 5,
                                                              {"dma", ""}, {"w"}}),
                                              opRecord(OpSpec{"relu", 0, 7, 0, 0, 0, {}, {}})})});
    const OutputRun file = runWriteOutput(chrome.reader, dir.file("trace.json"));
    ASSERT_TRUE(file.result);
    std::ostringstream trace;
    std::ostringstream summary;
    ASSERT_TRUE(writeTrace(&chrome.reader, trace, summary, TraceFormat::Exact));
    EXPECT_EQ(trace.str(), readFile(dir.file("trace.json")));
    EXPECT_EQ(summary.str(), file.stdoutText);

    // Only the chrome-trace reader draws traces.
    VekProfileLogReader plain(dir.file("none.bin"), VisibilityLevel(1));
    std::ostringstream none;
    EXPECT_FALSE(writeTrace(&plain, none, summary, TraceFormat::Exact));
    EXPECT_EQ(none.str(), "");
}

ProfileEvent withUnit(ProfileEvent e, uint32_t unit) {
    e.unit = unit;
    return e;
}

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
    // Depth 1 is what the summary passes.
    base.writeBackendSection(out, events, 1);
    EXPECT_EQ(out.str(),
              "        Accelerator: 12  cycles\n"
              "            Resources: PQA, DMA\n"
              "            item_a\n"
              "            Conv: 7  \n"
              "                deep: 4  us\n"
              "        edge: 1  count\n"
              "        low: 2  bytes\n"
              "        names\n"
              "        mask: PQA, PQB\n");
    // Depth 0 wraps the top-level names only.
    out.str("");
    base.writeBackendSection(out, {events[0].children[1], events[3], events[5]}, 0);
    EXPECT_EQ(out.str(),
              "    Backend (item_a)\n    Backend (edge): 1  count\n    Backend (names)\n");
}

}  // namespace
}  // namespace profiling
}  // namespace vek
