// Whole text summaries and CSV exports of realistic logs, and the object files
// they save: never overwritten, and never outside the object directory.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "logging/LogLevels.h"
#include "reader/VekProfileLogReader.h"
#include "support/Golden.h"
#include "support/LogCapture.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using namespace testlog;
namespace fs = std::filesystem;

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

// A run that fills every section of the report, over two chunks (the report
// does not depend on how the log is cut).
LogWriter everySectionLog() {
    LogWriter log;
    log.chunk().header(header())
        .message(MessageSpec(kLibLoad).times(10, 60).withEvents({EventSpec::u64("dlopen", 4321)}))
        .message(MessageSpec(kContextCreate).times(100, 1100))
        .message(MessageSpec(kCompose).times(1200, 1500))
        .message(MessageSpec(kFinalize).graph("g0").times(1600, 1800).withEvents(
            {EventSpec::u64("init", 77, 1, kInitEventIdentifier), EventSpec::u64("Finalize graph", 150)}))
        .message(MessageSpec(kFinalize).graph("g1").times(1900, 2000).withEvents(
            {EventSpec::u64("Finalize graph", 90)}))
        .message(MessageSpec(kContextGetBinarySize).times(2100, 2110))
        .message(MessageSpec(kContextGetBinary).times(2200, 2230))
        .message(MessageSpec(kContextGetBinarySectionSize).times(2300, 2305))
        .message(MessageSpec(kContextGetBinarySectionSize).times(2400, 2409));
    log.chunk()
        .message(MessageSpec(kNetRun).times(2900, 5200).withEvents(
            {EventSpec::u64("count", 4), EventSpec::u64("duration", 1000)}))
        .message(MessageSpec(kExecute).graph("g1").times(5000, 5100).withEvents(
            {EventSpec::f32("Temperature", 36.5f, 6), EventSpec::i64("Offset", -3, 4)}))
        .message(MessageSpec(kExecute).graph("g0").times(3000, 3400).withEvents(
            {EventSpec::u64("Accelerator", 300).withChildren({EventSpec::u64("Conv2d", 120, 3)}),
             EventSpec::u64("Scratch", 512, 2)}))
        .message(MessageSpec(kExecute).graph("g0").times(4000, 4600).withEvents(
            {EventSpec::u64("Accelerator", 500).withChildren({EventSpec::u64("Conv2d", 140, 3)}),
             EventSpec::u64("Scratch", 512, 2), EventSpec::u64("Backend init", 55, 1, kInitEventIdentifier)}))
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
    EXPECT_FALSE(fs::exists(dir_.file("obj_5.dat")));
    summaryOf(log, false);
    EXPECT_FALSE(fs::exists(dir_.file("obj_5.dat")));
    // Without an output path no file is made: the log and the five objects only.
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_.path()),
                            fs::directory_iterator()), 6);
}

void save(VekProfileLogReader& reader, const std::string& name, const std::string& bytes) {
    ProfileEvent event;
    event.name = "Blob";
    event.unit = kUnitObject;
    event.detail = name;
    event.bytes = std::vector<uint8_t>(bytes.begin(), bytes.end());
    reader.writeObjectEventFile(event);
}

// Empty names and unopenable ones write nothing, taken names are never overwritten.
TEST(ObjectEventFileTest, SavesTheBytesUnderTheFirstFreeName) {
    TempDir dir;
    VekProfileLogReader reader{"log.bin", VisibilityLevel(5)};
    LogCapture capture;
    save(reader, "", "x");
    save(reader, dir.file("missing/obj.bin"), "x");
    EXPECT_TRUE(capture.contains("Invalid output fileName: [" + dir.file("missing/obj.bin") + "]", kLogError));
    EXPECT_EQ(capture.messages().size(), 1u);
    EXPECT_TRUE(fs::is_empty(dir.path()));
    fs::create_directory(dir.file("dir.v2"));
    for (const char* name : {"y.bin", "y_2.bin", "a.b.c", "plain", "dir.v2/file"}) {
        std::ofstream(dir.file(name)) << "old";
    }
    const std::string raw("\x00\x0A\x0D\x0A\xFF\x1A\x00z", 8);
    const std::string nul("z.bin\0tail", 10);
    const struct {
        std::string name, bytes;
        const char* savedAs;
    } steps[] = {
        {"y.bin", "n", "y_1.bin"},
        {"y.bin", "m", "y_3.bin"},  // y_2.bin is taken
        // The name ends at a NUL byte, as the file system reads it; the
        // search for a free name must not stall on candidates that all look taken.
        {nul, "a", "z.bin"},
        {nul, "b", "z_1.bin"},
        // The counter goes before the last dot of the file name.
        {"a.b.c", "1", "a.b_1.c"},
        {"plain", "1", "plain_1"},
        {"dir.v2/file", "1", "dir.v2/file_1"},
        {"raw.bin", raw, "raw.bin"},
        {"raw.bin", "", "raw_1.bin"},
    };
    for (const auto& step : steps) {
        save(reader, dir.file(step.name), step.bytes);
        EXPECT_EQ(readFile(dir.file(step.savedAs)), step.bytes) << step.savedAs;
    }
    EXPECT_TRUE(fs::exists(dir.file("raw_1.bin")));
    EXPECT_EQ(readFile(dir.file("y_2.bin")), "old");
}

// Whatever the log names, a confined reader saves nothing outside its
// directory, with the kernel's check and with the resolving fallback alike.
TEST(ObjectEventFileTest, AConfinedReaderCreatesNothingOutsideItsDirectory) {
    TempDir dir;
    const std::string objects = dir.file("objects"), outside = dir.file("outside");
    fs::create_directories(objects);
    fs::create_directories(outside);
    fs::create_directory_symlink("../outside", objects + "/link");
    fs::create_directory_symlink(outside, objects + "/absolute");
    fs::create_symlink("../outside/dangling.bin", objects + "/dangling.bin");
    const std::string kEscapes = "resolves outside the object directory", kDotDot = "has a \"..\" component";
    // The name, then what it is saved as, or (after "!") the reason it is not.
    const std::pair<std::string, std::string> cases[] = {
        {"plain.bin", "plain.bin"}, {"..dots.bin", "..dots.bin"},
        {"dangling.bin", "dangling_1.bin"},  // the link counts as taken
        {outside + "/absolute.bin", "!is an absolute path"}, {"../outside/up.bin", "!" + kDotDot},
        {"a/../b.bin", "!" + kDotDot}, {"link/relative.bin", "!" + kEscapes}, {"absolute/link.bin", "!" + kEscapes},
    };
    for (const auto enforcement :
         {ObjectDirectory::Enforcement::kKernelFirst, ObjectDirectory::Enforcement::kResolveOnly}) {
        for (const auto& [name, outcome] : cases) {
            SCOPED_TRACE(name);
            LogCapture capture;
            VekProfileLogReader reader{"log.bin", VisibilityLevel(5)};
            reader.objectDirectory = ObjectDirectory::open(objects, enforcement);
            save(reader, name, "x");
            if (outcome[0] == '!') {
                EXPECT_TRUE(capture.contains(
                    "Object event [Blob]: file name [" + name + "] " + outcome.substr(1) + "; not saved", kLogError));
            } else {
                EXPECT_TRUE(capture.messages().empty());
                EXPECT_EQ(readFile(objects + "/" + outcome), "x");
                fs::remove(objects + "/" + outcome);
            }
        }
        EXPECT_TRUE(fs::is_empty(outside));
    }
    VekProfileLogReader reader{"log.bin", VisibilityLevel(5)};
    EXPECT_FALSE(confineObjectFiles(&reader, dir.file("absent")));
    EXPECT_TRUE(confineObjectFiles(&reader, objects));
    EXPECT_NE(reader.objectDirectory, nullptr);
    EXPECT_TRUE(confineObjectFiles(&reader, ""));  // off again
    EXPECT_EQ(reader.objectDirectory, nullptr);
}

}  // namespace
}  // namespace profiling
}  // namespace vek
