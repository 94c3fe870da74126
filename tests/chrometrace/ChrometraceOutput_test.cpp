#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cctype>
#include <cstdint>
#include <fstream>
#include <iomanip>
#include <limits>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

#include "chrometrace/LintingRecords.h"
#include "reader/VekProfileLogReaderChrometrace.h"
#include "support/LogCapture.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using testlinting::event;
using testlinting::graphWithOps;
using testlinting::OpSpec;
using testlinting::opRecord;
using testlog::LogCapture;
using testlog::readFile;
using testlog::TempDir;

constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();

struct ChromeReader {
    explicit ChromeReader(std::vector<GraphSummary> graphs = {}) {
        reader.executeStats.average = std::move(graphs);
    }
    VekProfileLogReaderChrometrace reader{"log.bin", VisibilityLevel(5)};
};

struct OutputRun {
    bool result;
    std::string stdoutText;
};

OutputRun runWriteOutput(VekProfileLogReaderChrometrace& reader, const std::string& path) {
    testing::internal::CaptureStdout();
    const bool result = reader.writeOutput(path);
    return OutputRun{result, testing::internal::GetCapturedStdout()};
}

// The three summary sections in the order and formatting the trace writer uses.
std::string summarySections(VekProfileLogReaderChrometrace& reader) {
    std::ostringstream out;
    out.imbue(std::locale::classic());
    out << std::fixed << std::setprecision(0);
    reader.printHeaderSection(out);
    reader.printLeadingSections(out);
    reader.printExecuteAverage(out);
    return out.str();
}

TEST(ChrometraceOutputTest, EmptyPathIsRefused) {
    ChromeReader chrome;
    LogCapture capture;
    const OutputRun run = runWriteOutput(chrome.reader, "");
    EXPECT_FALSE(run.result);
    EXPECT_EQ(run.stdoutText, "");
    EXPECT_TRUE(capture.contains("Output chrometraceFile not provided.", 1));
}

TEST(ChrometraceOutputTest, UnopenablePathIsRefused) {
    TempDir dir;
    const std::string path = dir.file("missing/trace.json");
    ChromeReader chrome;
    LogCapture capture;
    const OutputRun run = runWriteOutput(chrome.reader, path);
    EXPECT_FALSE(run.result);
    EXPECT_EQ(run.stdoutText, "");
    EXPECT_TRUE(capture.contains("Invalid output chrometraceFile: [" + path + "]", 1));
}

TEST(ChrometraceOutputTest, NoGraphsWriteAnEmptyTraceAndTheSummary) {
    TempDir dir;
    const std::string path = dir.file("trace.json");
    ChromeReader chrome;
    const std::string expectedSummary = summarySections(chrome.reader);
    const OutputRun run = runWriteOutput(chrome.reader, path);
    EXPECT_TRUE(run.result);
    EXPECT_EQ(readFile(path), "{\n    \"traceEvents\": []\n}\n");
    EXPECT_EQ(run.stdoutText, expectedSummary);

    // A second call rewrites the file rather than appending to it.
    EXPECT_TRUE(runWriteOutput(chrome.reader, path).result);
    EXPECT_EQ(readFile(path), "{\n    \"traceEvents\": []\n}\n");
}

TEST(ChrometraceOutputTest, TraceIsPrettyPrintedWithFourBlanks) {
    TempDir dir;
    const std::string path = dir.file("trace.json");
    ChromeReader chrome({graphWithOps("g", {opRecord(OpSpec{"op", 2, 3, 0, 1, 1, {"b"}, {}})})});
    ASSERT_TRUE(runWriteOutput(chrome.reader, path).result);
    EXPECT_EQ(readFile(path),
              "{\n"
              "    \"traceEvents\": [\n"
              "        {\n"
              "            \"name\": \"Wait\",\n"
              "            \"pid\": 0,\n"
              "            \"tid\": \"Foreground\",\n"
              "            \"ph\": \"X\",\n"
              "            \"ts\": 0,\n"
              "            \"dur\": 2,\n"
              "            \"cname\": \"grey\",\n"
              "            \"args\": {\n"
              "                \"Duration\": 2\n"
              "            }\n"
              "        },\n"
              "        {\n"
              "            \"name\": \"\",\n"
              "            \"pid\": 0,\n"
              "            \"tid\": \"Background\",\n"
              "            \"ph\": \"X\",\n"
              "            \"ts\": 0,\n"
              "            \"dur\": 1,\n"
              "            \"args\": {\n"
              "                \"Duration\": 1\n"
              "            }\n"
              "        },\n"
              "        {\n"
              "            \"name\": \"op\",\n"
              "            \"pid\": 0,\n"
              "            \"tid\": \"Foreground\",\n"
              "            \"ph\": \"X\",\n"
              "            \"ts\": 2,\n"
              "            \"dur\": 3,\n"
              "            \"args\": {\n"
              "                \"Duration\": 3,\n"
              "                \"Resources\": \"PQA\"\n"
              "            }\n"
              "        },\n"
              "        {\n"
              "            \"name\": \"b\",\n"
              "            \"pid\": 0,\n"
              "            \"tid\": \"Background\",\n"
              "            \"ph\": \"X\",\n"
              "            \"ts\": 2,\n"
              "            \"dur\": 0,\n"
              "            \"args\": {\n"
              "                \"Duration\": 0\n"
              "            }\n"
              "        }\n"
              "    ]\n"
              "}\n");
}

TEST(ChrometraceOutputTest, NumbersNearTheTopOfTheRangeStayIntegers) {
    TempDir dir;
    const std::string path = dir.file("trace.json");
    ChromeReader chrome({graphWithOps(
        "g", {opRecord(OpSpec{"a", kMax - 1, kMax, kMax - 2, kMax, 0, {}, {}}),
              opRecord(OpSpec{"b", 0, uint64_t{1} << 63, 0, 0, 0, {}, {}})})});
    ASSERT_TRUE(runWriteOutput(chrome.reader, path).result);
    const std::string text = readFile(path);

    rapidjson::Document parsed;
    parsed.Parse(text.c_str());
    ASSERT_FALSE(parsed.HasParseError());
    const rapidjson::Value& events = parsed["traceEvents"];
    ASSERT_EQ(events.Size(), 6u);
    const uint64_t expected[][2] = {{0, kMax - 1},       {0, kMax},
                                    {kMax - 1, kMax},    {kMax - 1, kMax - 2},
                                    {kMax - 2, uint64_t{1} << 63}, {kMax - 2, 0}};
    for (rapidjson::SizeType i = 0; i < events.Size(); ++i) {
        SCOPED_TRACE(i);
        ASSERT_TRUE(events[i]["ts"].IsUint64());
        ASSERT_TRUE(events[i]["dur"].IsUint64());
        ASSERT_TRUE(events[i]["args"]["Duration"].IsUint64());
        EXPECT_EQ(events[i]["ts"].GetUint64(), expected[i][0]);
        EXPECT_EQ(events[i]["dur"].GetUint64(), expected[i][1]);
        EXPECT_EQ(events[i]["args"]["Duration"].GetUint64(), expected[i][1]);
    }

    // Every number token is plain digits: no fraction, no exponent.
    std::istringstream lines(text);
    size_t numbers = 0;
    for (std::string line; std::getline(lines, line);) {
        const size_t colon = line.find("\": ");
        if (colon == std::string::npos) continue;
        std::string value = line.substr(colon + 3);
        if (!value.empty() && value.back() == ',') value.pop_back();
        if (value.empty() || value[0] == '"' || value[0] == '{' || value[0] == '[') continue;
        ++numbers;
        for (char c : value) EXPECT_TRUE(std::isdigit(static_cast<unsigned char>(c))) << line;
    }
    EXPECT_EQ(numbers, 6u * 4u);  // pid, ts, dur, Duration per event
}

TEST(ChrometraceOutputTest, RefusedBuildLeavesAnEmptyFileAndPrintsNothing) {
    TempDir dir;
    const std::string path = dir.file("trace.json");
    {
        std::ofstream old(path);
        old << "old trace";
    }
    ProfileEvent incomplete = opRecord(OpSpec{"late", 1, 1, 1, 1, 1, {}, {}});
    incomplete.children.pop_back();  // drops the 5004 child
    ChromeReader chrome({graphWithOps("g0", {opRecord(OpSpec{"ok", 1, 2, 3, 4, 5, {}, {}})}),
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

TEST(ChrometraceOutputTest, AFailedWriteIsReportedAsAFailure) {
    if (!std::ifstream("/dev/full")) GTEST_SKIP() << "no /dev/full here";
    ChromeReader chrome;
    LogCapture capture;
    const OutputRun run = runWriteOutput(chrome.reader, "/dev/full");
    EXPECT_FALSE(run.result);
    EXPECT_EQ(run.stdoutText, "");
    EXPECT_TRUE(capture.contains("Invalid output chrometraceFile: [/dev/full]", 1));
}

// An op record as the runtime logs it under an execution event.
testlog::EventSpec loggedOp(uint64_t duration, uint64_t wait) {
    using testlog::EventSpec;
    return EventSpec::u64("conv_1", duration, 1, kOpRecordIdentifier)
        .withChildren({EventSpec::u64("wait", wait, 1, kWaitDurationIdentifier),
                       EventSpec::u64("op bg", 40, 1, kOpBackgroundIdentifier)
                           .withChildren({EventSpec::u64("dma_in", 0, 6,
                                                         kOpBackgroundNameIdentifier)}),
                       EventSpec::u64("wait bg", 0, 1, kWaitBackgroundIdentifier),
                       EventSpec::u64("resources", 4, 6, kResourceMaskIdentifier)});
}

TEST(ChrometraceOutputTest, LoadedLogIsDrawnFromItsExecuteAverages) {
    using testlog::EventSpec;
    using testlog::MessageSpec;
    TempDir dir;
    testlog::LogWriter log;
    log.chunk()
        .header(testlog::HeaderSpec{}.tool("tool", "1.0"))
        .message(MessageSpec(testlog::kExecute).graph("model_a").times(10, 1010).withEvents(
            {EventSpec::u64("Accelerator", 900).withChildren({loggedOp(100, 10)})}))
        .message(MessageSpec(testlog::kExecute).graph("model_a").times(2000, 3000).withEvents(
            {EventSpec::u64("Accelerator", 900).withChildren({loggedOp(200, 30)})}));
    log.writeTo(dir.file("profile.bin"));

    VekProfileLogReaderChrometrace reader(dir.file("profile.bin"), VisibilityLevel(10));
    ASSERT_TRUE(reader.loadLog(false));
    const std::string path = dir.file("trace.json");
    const OutputRun run = runWriteOutput(reader, path);
    ASSERT_TRUE(run.result);
    EXPECT_NE(run.stdoutText.find("Execute Stats (Average):"), std::string::npos);
    EXPECT_NE(run.stdoutText.find("Graph 0 (model_a):"), std::string::npos);

    rapidjson::Document parsed;
    parsed.Parse(readFile(path).c_str());
    ASSERT_FALSE(parsed.HasParseError());
    const rapidjson::Value& events = parsed["traceEvents"];
    ASSERT_EQ(events.Size(), 4u);
    // Averages over the two executions: W = 20, V = 150, B = 40, mask 4.
    EXPECT_STREQ(events[0]["name"].GetString(), "Wait");
    EXPECT_EQ(events[0]["dur"].GetUint64(), 20u);
    EXPECT_STREQ(events[2]["name"].GetString(), "conv_1");
    EXPECT_EQ(events[2]["ts"].GetUint64(), 20u);
    EXPECT_EQ(events[2]["dur"].GetUint64(), 150u);
    EXPECT_STREQ(events[2]["args"]["Resources"].GetString(), "DMA");
    EXPECT_STREQ(events[3]["name"].GetString(), "dma_in");
    EXPECT_EQ(events[3]["dur"].GetUint64(), 40u);
}

ProfileEvent withUnit(ProfileEvent e, uint32_t unit) {
    e.unit = unit;
    return e;
}

std::vector<ProfileEvent> listingEvents() {
    return {
        withUnit(event(0, "Accelerator", 12,
                       {event(kResourceMaskIdentifier, "Resources", 5),
                        event(kOpBackgroundNameIdentifier, "item_a", 99),
                        event(9005, "hidden", 1, {event(0, "under hidden", 1)}),
                        withUnit(event(0, "Conv", 7), kUnitNone),
                        withUnit(event(kOpBackgroundIdentifier, "bg", 4,
                                       {event(kOpBackgroundNameIdentifier, "deep item", 0)}),
                                 kUnitMicroseconds)}),
                 kUnitCycles),
        event(9000, "first hidden", 1),
        event(9009, "last hidden", 1),
        withUnit(event(9010, "edge", 1), kUnitCount),
        withUnit(event(8999, "low", 2), kUnitBytes),
        event(kWaitBackgroundNameIdentifier, "names", 3),
        event(kResourceMaskIdentifier, "mask", 0x103),
    };
}

TEST(ChrometraceBackendListingTest, DepthZeroWrapsNamesAndHidesTheReservedRange) {
    ChromeReader chrome;
    std::ostringstream out;
    VekProfileLogReader& base = chrome.reader;  // reached through the virtual slot
    base.writeBackendSection(out, listingEvents(), 0);
    EXPECT_EQ(out.str(),
              "    Backend (Accelerator): 12  cycles\n"
              "        Resources: PQA, DMA\n"
              "        item_a\n"
              "        Conv: 7  \n"
              "        bg: 4  us\n"
              "            deep item\n"
              "    Backend (edge): 1  count\n"
              "    Backend (low): 2  bytes\n"
              "    Backend (names)\n"
              "    Backend (mask): PQA, PQB\n");
}

TEST(ChrometraceBackendListingTest, DeeperLevelsIndentByFourAndShowBareNames) {
    ChromeReader chrome;
    std::ostringstream out;
    chrome.reader.writeBackendSection(out, listingEvents(), 1);
    EXPECT_EQ(out.str(),
              "        Accelerator: 12  cycles\n"
              "            Resources: PQA, DMA\n"
              "            item_a\n"
              "            Conv: 7  \n"
              "            bg: 4  us\n"
              "                deep item\n"
              "        edge: 1  count\n"
              "        low: 2  bytes\n"
              "        names\n"
              "        mask: PQA, PQB\n");
    // Writing a value leaves the stream in fixed notation with two decimals.
    out.str("");
    out << 1.5;
    EXPECT_EQ(out.str(), "1.50");
}

}  // namespace
}  // namespace profiling
}  // namespace vek
