// Whole text summaries and CSV exports of realistic logs, and the edges of the layout.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <iomanip>
#include <iterator>
#include <locale>
#include <memory>
#include <sstream>
#include <string>

#include "reader/VekProfileLogReader.h"
#include "stats/TextBuffer.h"
#include "support/Golden.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using namespace testlog;

class TextSummaryTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
    }

    // Loads the log and returns what writeOutput printed, the log's path as "<log>".
    std::string summaryOf(const LogWriter& log, bool loadFlag = false, const std::string& csv = "") {
        log.writeTo(logPath());
        reader_ = std::make_unique<VekProfileLogReader>(logPath(), VisibilityLevel(5));
        EXPECT_TRUE(reader_->loadLog(loadFlag));
        return printedOutput(csv);
    }

    std::string printedOutput(const std::string& csv = "") {
        testing::internal::CaptureStdout();
        EXPECT_TRUE(reader_->writeOutput(csv));
        return withoutLogPath(testing::internal::GetCapturedStdout());
    }

    std::string withoutLogPath(std::string text) const {
        for (size_t at; (at = text.find(logPath())) != std::string::npos;) {
            text.replace(at, logPath().size(), "<log>");
        }
        return text;
    }

    std::string logPath() const { return dir_.file("run.bin"); }

    TempDir dir_;
    std::unique_ptr<VekProfileLogReader> reader_;
};

HeaderSpec header(const std::string& tool = "net-run", const std::string& version = "2.0") {
    return HeaderSpec{}.tool(tool, version).backendText("Backend 1.2").steady(7);
}

// A run that fills every section of the report.
LogWriter everySectionLog() {
    LogWriter log;
    log.chunk().header(header())
        .message(MessageSpec(kLibLoad).times(10, 60).withEvents({EventSpec::u64("dlopen", 4321)}))
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

// Each log's summary and CSV export; a second export appends a second set of rows.
TEST_F(TextSummaryTest, ReportsOfEachKindOfRunMatchTheirGoldenFiles) {
    LogWriter noExecutions;
    noExecutions.chunk().header(header());
    // Queue-wait-free figures; ties go to the last execution, whose queue wait is 4.
    LogWriter roundTrips;
    ChunkSpec& chunk = roundTrips.chunk().header(header());
    for (uint64_t wait : {3u, 4u, 4u}) {
        chunk.message(MessageSpec(kExecuteRoundTrip).graph("g0").times(1000 * wait, 1000 * wait + 100)
                          .withEvents({EventSpec::u64("Queue wait", wait, 1, 405),
                                       EventSpec::u64("Accelerator", 80)}));
    }
    // The updater's runs print and export the update section alone.
    LogWriter updater;
    updater.chunk().header(header(kLoraAdapterUpdaterToolName, "3.1"))
        .message(MessageSpec(kUpdateBinarySection).times(100, 130).withEvents({EventSpec::u64("Patch", 12)}))
        .message(MessageSpec(kExecute).graph("g0").times(150, 190))
        .message(MessageSpec(kUpdateBinarySection).times(200, 260).withEvents({EventSpec::u64("Patch", 20)}));
    // Executions that all took no time: the minimum prints the largest u64.
    LogWriter allZero;
    allZero.chunk().header(header())
        .message(MessageSpec(kExecute).graph("g0").times(10, 10))
        .message(MessageSpec(kExecute).graph("g0").times(20, 5));
    const LogWriter everySection = everySectionLog();
    const struct {
        const char* name;
        const LogWriter& log;
    } cases[] = {{"every_section", everySection}, {"no_executions", noExecutions},
                 {"round_trips", roundTrips}, {"lora_updater", updater}, {"all_zero", allZero}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string csv = dir_.file(std::string(c.name) + ".csv");
        EXPECT_TRUE(matchesGolden(summaryOf(c.log, false, csv), std::string("stats/") + c.name + ".txt"));
        const std::string rows = readFile(csv);
        EXPECT_TRUE(matchesGolden(withoutLogPath(rows), std::string("stats/") + c.name + ".csv"));
        printedOutput(csv);
        EXPECT_EQ(readFile(csv), rows + rows);
    }
}

TEST_F(TextSummaryTest, ObjectEventsAreSavedOnlyWithTheLoadFlagAndRepeatedByDesign) {
    const std::string objectPath = dir_.file("obj.dat");
    LogWriter log;
    log.chunk().header(header())
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
    // Without an output path no file is made: the log and the five objects only.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_.path()),
                            std::filesystem::directory_iterator()), 6);
}

// The buffer the reports are written into holds exactly what a string stream
// would, far past its first capacity and past any reserve.
TEST(TextBufferTest, HoldsExactlyWhatAStringStreamWould) {
    auto writeRows = [](std::ostream& out) {
        out.imbue(std::locale::classic());
        out << std::fixed << std::setprecision(2);
        for (int i = 0; i < 20000; ++i) {
            out << i << ',' << static_cast<uint64_t>(i) * 1234567u << ",row " << 0.25 * i;
            out.put('\n');
            out.write("tail", 4);
        }
        out.flush();
    };
    std::ostringstream expected;
    writeRows(expected);
    for (size_t reserved : {0u, 10u, 1u << 20}) {
        TextStream actual;
        actual.reserve(reserved);
        writeRows(actual);
        EXPECT_TRUE(actual.good());
        EXPECT_TRUE(actual.text() == expected.str()) << reserved;
    }
    TextStream empty;
    empty << "" << std::string();  // nothing to copy, before any storage exists
    EXPECT_TRUE(empty.good());
    EXPECT_TRUE(empty.text().empty());
}

}  // namespace
}  // namespace profiling
}  // namespace vek
