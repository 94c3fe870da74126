// Whole text summaries of realistic logs, and the focused cases of the layout.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>

#include "reader/VekProfileLogReader.h"
#include "support/LogCapture.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using namespace testlog;

std::string dashes(size_t n) { return std::string(n, '-') + "\n"; }

class TextSummaryTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
    }

    // Loads the log and returns what writeOutput printed.
    std::string summaryOf(const LogWriter& log, bool loadFlag = false,
                          const std::string& outputPath = "") {
        log.writeTo(logPath());
        reader_ = std::make_unique<VekProfileLogReader>(logPath(), VisibilityLevel(5));
        EXPECT_TRUE(reader_->loadLog(loadFlag));
        return printedOutput(outputPath);
    }

    std::string printedOutput(const std::string& outputPath = "") {
        testing::internal::CaptureStdout();
        EXPECT_TRUE(reader_->writeOutput(outputPath));
        return testing::internal::GetCapturedStdout();
    }

    std::string logPath() const { return dir_.file("run.bin"); }

    std::string headerText(const std::string& tool, const std::string& version,
                           const std::string& backend) const {
        return "Input Log File Location: " + logPath() +
               "\n"
               "Log File Created: Thu Jan  1 00:00:00 1970\n"
               "Time Scale: 1\n"
               "Epoch Timestamp: 0 Steady Clock Timestamp: 7\n"
               "Generated using: \n"
               "vek-profile-viewer: v0.1.0\n" +
               tool + ": " + version + "\nBackend: " + backend + "\n\n";
    }

    TempDir dir_;
    std::unique_ptr<VekProfileLogReader> reader_;
};

HeaderSpec header(const std::string& tool, const std::string& version) {
    return HeaderSpec{}.tool(tool, version).backendText("Backend 1.2").steady(7);
}

// A run that fills every section of the report.
LogWriter everySectionLog() {
    LogWriter log;
    ChunkSpec& chunk = log.chunk().header(header("net-run", "2.0"));
    chunk.message(MessageSpec(kLibLoad).times(10, 60).withEvents({EventSpec::u64("dlopen", 4321)}))
        .message(MessageSpec(kContextCreate).times(100, 1100))
        .message(MessageSpec(kCompose).times(1200, 1500))
        .message(MessageSpec(kFinalize).graph("g0").times(1600, 1800).withEvents({
            EventSpec::u64("init", 77, 1, kInitEventIdentifier),
            EventSpec::u64("Finalize graph", 150),
        }))
        .message(MessageSpec(kFinalize).graph("g1").times(1900, 2000).withEvents(
            {EventSpec::u64("Finalize graph", 90)}))
        .message(MessageSpec(kContextGetBinarySize).times(2100, 2110))
        .message(MessageSpec(kContextGetBinary).times(2200, 2230))
        .message(MessageSpec(kContextGetBinarySectionSize).times(2300, 2305))
        .message(MessageSpec(kContextGetBinarySectionSize).times(2400, 2409));
    // A second chunk: the report does not depend on how the log is cut.
    log.chunk()
        .message(MessageSpec(kNetRun).times(2900, 5200).withEvents(
            {EventSpec::u64("count", 4), EventSpec::u64("duration", 1000)}))
        .message(MessageSpec(kExecute).graph("g1").times(5000, 5100).withEvents({
            EventSpec::f32("Temperature", 36.5f, 6),
            EventSpec::i64("Offset", -3, 4),
        }))
        .message(MessageSpec(kExecute).graph("g0").times(3000, 3400).withEvents({
            EventSpec::u64("Accelerator", 300).withChildren({EventSpec::u64("Conv2d", 120, 3)}),
            EventSpec::u64("Scratch", 512, 2),
        }))
        .message(MessageSpec(kExecute).graph("g0").times(4000, 4600).withEvents({
            EventSpec::u64("Accelerator", 500).withChildren({EventSpec::u64("Conv2d", 140, 3)}),
            EventSpec::u64("Scratch", 512, 2),
            EventSpec::u64("Backend init", 55, 1, kInitEventIdentifier),
        }))
        .message(MessageSpec(kDeinit).times(6000, 6250).withEvents({EventSpec::u64("Release", 200)}))
        .message(MessageSpec(kApplyBinarySection).graph("g0").times(7000, 7040).withEvents(
            {EventSpec::u64("Apply", 35)}))
        .message(MessageSpec(kApplyBinarySection2).graph("g0").times(7100, 7160).withEvents(
            {EventSpec::u64("Apply", 45)}))
        .message(MessageSpec(kFinalizeAfterTensorUpdates).graph("g0").times(8000, 8070));
    return log;
}

TEST_F(TextSummaryTest, PrintsEverySectionOfARealisticRun) {
    const std::string g1Lines =
        "Graph 0 (g1):\n"
        "    NetRun: 100 us\n"
        "    Backend (Temperature): 36.500000 \n"
        "    Backend (Offset): -3 count\n"
        "\n";
    const std::string executeHeading = dashes(24) + "Total Inference Time: \n" + dashes(21);
    const std::string expected =
        headerText("net-run", "2.0", "Backend 1.2") +
        "Vek Init/Prepare/Finalize/De-Init/Execute/Lib-Load Statistics:\n" + dashes(60) +
        "Init Stats:\n" + dashes(11) +
        "    NetRun: 1600 us\n"
        "    Backend (Backend init): 55 us\n"
        "\n"
        "Compose Graphs Stats:\n" + dashes(14) +
        "    NetRun: 300 us\n"
        "\n"
        "Finalize Stats:\n" + dashes(15) +
        "Graph 0 (g0):\n"
        "    NetRun: 200 us\n"
        "    Backend (Finalize graph): 150 us\n"
        "\n"
        "Graph 1 (g1):\n"
        "    NetRun: 100 us\n"
        "    Backend (Finalize graph): 90 us\n"
        "\n"
        "De-Init Stats:\n" + dashes(14) +
        "    NetRun: 250 us\n"
        "    Backend (Release): 200 us\n"
        "\n"
        "Context Retrieval Stats:\n" + dashes(24) +
        "Get Binary Size:\n"
        "    NetRun: 10 us\n"
        "\n"
        "Get Binary:\n"
        "    NetRun: 30 us\n"
        "\n"
        "Context Section Retrieval Stats (Average):\n" + dashes(47) +
        "Get Binary Section Size:\n"
        "    NetRun: 7 us\n"
        "\n"
        "Context Section Retrieval Stats (Min):\n" + dashes(42) +
        "Get Binary Section Size:\n"
        "    NetRun: 5 us\n"
        "\n"
        "Context Section Retrieval Stats (Max):\n" + dashes(42) +
        "Get Binary Section Size:\n"
        "    NetRun: 9 us\n"
        "\n"
        "Execute Stats (Overall):\n" + dashes(24) +
        "    NetRun IPS (includes IO and misc. time): 4000.0000 inf/sec \n"
        "\n"
        "Execute Stats (Average):\n" + executeHeading + g1Lines +
        "Graph 1 (g0):\n"
        "    NetRun: 500 us\n"
        "    Backend (Accelerator): 400 us\n"
        "        Conv2d: 130 cycles\n"
        "    Backend (Scratch): 512 bytes\n"
        "\n"
        "Execute Stats (Min):\n" + executeHeading + g1Lines +
        "Graph 1 (g0):\n"
        "    NetRun: 400 us\n"
        "    Backend (Accelerator): 300 us\n"
        "        Conv2d: 120 cycles\n"
        "    Backend (Scratch): 512 bytes\n"
        "\n"
        "Execute Stats (Max):\n" + executeHeading + g1Lines +
        "Graph 1 (g0):\n"
        "    NetRun: 600 us\n"
        "    Backend (Accelerator): 500 us\n"
        "        Conv2d: 140 cycles\n"
        "    Backend (Scratch): 512 bytes\n"
        "\n"
        "Dynamic Lib Load Stats:\n" + dashes(24) +
        "    Backend Latency: 4321 us\n"
        "\n"
        "ApplyBinarySection Stats (Average):\n" + dashes(35) +
        "Graph 0 (g0):\n    NetRun: 50 us\n    Backend (Apply): 40 us\n\n"
        "ApplyBinarySection Stats (Min):\n" + dashes(35) +
        "Graph 0 (g0):\n    NetRun: 40 us\n    Backend (Apply): 35 us\n\n"
        "ApplyBinarySection Stats (Max):\n" + dashes(35) +
        "Graph 0 (g0):\n    NetRun: 60 us\n    Backend (Apply): 45 us\n\n"
        "FinalizeAfterTensorUpdates Stats (Average):\n" + dashes(45) +
        "Graph 0 (g0):\n    NetRun: 70 us\n\n"
        "FinalizeAfterTensorUpdates Stats (Min):\n" + dashes(40) +
        "Graph 0 (g0):\n    NetRun: 70 us\n\n"
        "FinalizeAfterTensorUpdates Stats (Max):\n" + dashes(40) +
        "Graph 0 (g0):\n    NetRun: 70 us\n\n";
    EXPECT_EQ(summaryOf(everySectionLog()), expected);
}

TEST_F(TextSummaryTest, LogWithoutExecutionsPrintsEmptyExecuteSections) {
    LogWriter log;
    log.chunk().header(header("net-run", "2.0"));
    const std::string emptyExecute = dashes(24) + "Total Inference Time: \n" + dashes(21) + "\n";
    const std::string expected =
        headerText("net-run", "2.0", "Backend 1.2") +
        "Vek Init/Prepare/Finalize/De-Init/Execute/Lib-Load Statistics:\n" + dashes(60) +
        "Init Stats:\n" + dashes(11) + "    NetRun: 0 us\n\n" +
        "Compose Graphs Stats:\n" + dashes(14) + "    NetRun: 0 us\n\n" +
        "Finalize Stats:\n" + dashes(15) + "\n" +
        "De-Init Stats:\n" + dashes(14) + "    NetRun: 0 us\n\n" +
        "Execute Stats (Average):\n" + emptyExecute +
        "Execute Stats (Min):\n" + emptyExecute +
        "Execute Stats (Max):\n" + emptyExecute;
    EXPECT_EQ(summaryOf(log), expected);
}

TEST_F(TextSummaryTest, HostRoundTripShowsTheQueueWaitFreeFigures) {
    LogWriter log;
    ChunkSpec& chunk = log.chunk().header(header("net-run", "2.0"));
    for (uint64_t wait : {3u, 4u, 4u}) {
        chunk.message(MessageSpec(kExecuteRoundTrip).graph("g0").times(1000 * wait, 1000 * wait + 100)
                          .withEvents({EventSpec::u64("Queue wait", wait, 1, 405),
                                       EventSpec::u64("Accelerator", 80)}));
    }
    const std::string summary = summaryOf(log);
    const std::string averageBlock =
        "Graph 0 (g0):\n"
        "    NetRun (Host Round-Trip): 100 us\n"
        "    NetRun (Host Round-Trip excluding queue wait): 97\n"
        "    Backend (Queue wait): 3 us\n"
        "    Backend (Accelerator): 80 us\n\n";
    // Ties go to the last execution, whose queue wait is 4.
    const std::string extremeBlock =
        "Graph 0 (g0):\n"
        "    NetRun (Host Round-Trip): 100 us\n"
        "    NetRun (Host Round-Trip excluding queue wait): 96\n"
        "    Backend (Queue wait): 4 us\n"
        "    Backend (Accelerator): 80 us\n\n";
    const std::string heading = dashes(24) + "Total Inference Time: \n" + dashes(21);
    EXPECT_NE(summary.find("Execute Stats (Average):\n" + heading + averageBlock), std::string::npos)
        << summary;
    EXPECT_NE(summary.find("Execute Stats (Min):\n" + heading + extremeBlock), std::string::npos);
    EXPECT_NE(summary.find("Execute Stats (Max):\n" + heading + extremeBlock), std::string::npos);
}

TEST_F(TextSummaryTest, LoraUpdaterModePrintsOnlyTheUpdateSectionAndItsCsv) {
    LogWriter log;
    log.chunk()
        .header(header(kLoraAdapterUpdaterToolName, "3.1"))
        .message(MessageSpec(kUpdateBinarySection).times(100, 130).withEvents(
            {EventSpec::u64("Patch", 12)}))
        .message(MessageSpec(kExecute).graph("g0").times(150, 190))
        .message(MessageSpec(kUpdateBinarySection).times(200, 260).withEvents(
            {EventSpec::u64("Patch", 20)}));
    const std::string csvPath = dir_.file("out.csv");
    const std::string expected = headerText(kLoraAdapterUpdaterToolName, "3.1", "Backend 1.2") +
                                 "UpdateBinarySection Stats:\n" + dashes(32) +
                                 "    NetRun: 60 us\n"
                                 "    Backend (Patch): 20 us\n\n";
    EXPECT_EQ(summaryOf(log, false, csvPath), expected);
    EXPECT_EQ(readFile(csvPath),
              "input log file location, " + logPath() +
                  "\n"
                  "vek-profile-viewer version, v0.1.0\n"
                  "zolra-lora-adapter-bin-updater version, 3.1\n"
                  "Backend version, Backend 1.2\n"
                  "Msg Timestamp, Message, Time, Unit of Measurement, Timing Source, Event Level, "
                  "Event Identifier\n"
                  "200,UPDATE BINARY SECTION,60,US,LABU,ROOT,null\n"
                  "200,UPDATE_BINARY_SECTION,20,US,BACKEND,ROOT,Patch\n");
}

TEST_F(TextSummaryTest, SecondExportAppendsASecondSetOfRows) {
    const std::string csvPath = dir_.file("out.csv");
    summaryOf(everySectionLog(), false, csvPath);
    const std::string first = readFile(csvPath);
    ASSERT_EQ(first.rfind("input log file location, ", 0), 0u);
    EXPECT_NE(first.find("3000,EXECUTE,400,US,NETRUN,ROOT,Graph 1: g0\n"), std::string::npos);
    printedOutput(csvPath);
    EXPECT_EQ(readFile(csvPath), first + first);
}

TEST_F(TextSummaryTest, AllZeroExecutionsPrintTheLargestMinimum) {
    LogWriter log;
    log.chunk().header(header("net-run", "2.0"))
        .message(MessageSpec(kExecute).graph("g0").times(10, 10))
        .message(MessageSpec(kExecute).graph("g0").times(20, 5));
    const std::string summary = summaryOf(log);
    EXPECT_NE(summary.find("Execute Stats (Min):\n" + dashes(24) + "Total Inference Time: \n" +
                           dashes(21) + "Graph 0 (g0):\n    NetRun: 18446744073709551615 us\n\n"),
              std::string::npos)
        << summary;
}

TEST_F(TextSummaryTest, UnknownContextCallLabelPrintsABareColon) {
    reader_ = std::make_unique<VekProfileLogReader>(logPath(), VisibilityLevel(5));
    reader_->hasContextBinaryCalls = true;
    reader_->contextBinaryCallOrder = {"CONTEXT SOMETHING ELSE"};
    reader_->contextBinaryCalls["CONTEXT SOMETHING ELSE"] = ExecutionSample{5, 1, {}};
    const std::string summary = printedOutput();
    EXPECT_NE(summary.find("Context Retrieval Stats:\n" + dashes(24) + ":\n    NetRun: 5 us\n\n"),
              std::string::npos)
        << summary;
}

TEST_F(TextSummaryTest, ObjectEventsAreSavedOnlyWithTheLoadFlagAndRepeatedByDesign) {
    const std::string objectPath = dir_.file("obj.dat");
    LogWriter log;
    log.chunk().header(header("net-run", "2.0"))
        .message(MessageSpec(kExecute).graph("g0").times(10, 50).withEvents({
            EventSpec::object("Weights", {0x00, 0x0a, 0xff}, objectPath)
                .withChildren({EventSpec::u64("part a", 1), EventSpec::u64("part b", 2)}),
        }));
    const std::string summary = summaryOf(log, true);
    // The object event itself is never printed, its children are.
    EXPECT_EQ(summary.find("Weights"), std::string::npos);
    EXPECT_NE(summary.find("        part a: 1 us\n"), std::string::npos);
    // The average pass saves the event once and once per child (3 files); the
    // minimum and maximum sections list it once each (2 more).
    for (const char* name : {"obj.dat", "obj_1.dat", "obj_2.dat", "obj_3.dat", "obj_4.dat"}) {
        EXPECT_EQ(readFile(dir_.file(name)), std::string("\x00\x0a\xff", 3)) << name;
    }
    EXPECT_FALSE(std::filesystem::exists(dir_.file("obj_5.dat")));

    summaryOf(log, false);
    EXPECT_FALSE(std::filesystem::exists(dir_.file("obj_5.dat")));
}

TEST_F(TextSummaryTest, UnopenableOutputIsRefusedAndNothingIsPrinted) {
    LogCapture capture(1);
    LogWriter log;
    log.chunk().header(header("net-run", "2.0"));
    log.writeTo(logPath());
    VekProfileLogReader reader(logPath(), VisibilityLevel(5));
    ASSERT_TRUE(reader.loadLog(false));
    const std::string path = dir_.file("missing/out.csv");
    testing::internal::CaptureStdout();
    EXPECT_FALSE(reader.writeOutput(path));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE(capture.contains("Invalid output file: [" + path + "]", 1));
}

TEST_F(TextSummaryTest, EmptyOutputPathPrintsTheReportAndCreatesNoFile) {
    LogWriter log;
    log.chunk().header(header("net-run", "2.0"));
    EXPECT_NE(summaryOf(log, false, "").find("Init Stats:"), std::string::npos);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_.path()),
                            std::filesystem::directory_iterator()),
              1);  // only the log itself
}

}  // namespace
}  // namespace profiling
}  // namespace vek
