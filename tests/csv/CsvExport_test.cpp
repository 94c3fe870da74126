#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

#include "VekVersion.h"
#include "reader/VekProfileLogReader.h"

namespace vek {
namespace profiling {
namespace {

using Lines = std::vector<std::string>;

const std::string kColumnHeader =
    "Msg Timestamp, Message, Time, Unit of Measurement, Timing Source, Event Level, "
    "Event Identifier";

ProfileEvent u64Event(std::string name, uint64_t value, uint32_t unit = 1,
                      std::vector<ProfileEvent> children = {}) {
    ProfileEvent event;
    event.name = std::move(name);
    event.value = EventValue{kDataTypeUInt64, value};
    event.unit = unit;
    event.timestamp = 777777;  // rows take the record's timestamp, never this
    event.children = std::move(children);
    return event;
}

ProfileEvent objectEvent(std::string name, std::vector<ProfileEvent> children = {}) {
    ProfileEvent event = u64Event(std::move(name), 0, kUnitObject, std::move(children));
    event.detail = "object.bin";
    event.bytes = {1, 2, 3};
    return event;
}

ExecutionSample sample(uint64_t timestamp, uint64_t time, std::vector<ProfileEvent> events = {}) {
    return ExecutionSample{time, timestamp, std::move(events)};
}

Lines splitLines(const std::string& text) {
    Lines lines;
    size_t start = 0;
    for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', start)) {
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    EXPECT_EQ(start, text.size()) << "the export must end with a line end";
    return lines;
}

Lines exportLines(VekProfileLogReader& reader) {
    std::ostringstream out;
    reader.writeCsvExport(out);
    return splitLines(out.str());
}

// The event rows, after the four header rows and the column header.
Lines exportRows(VekProfileLogReader& reader) {
    Lines lines = exportLines(reader);
    EXPECT_GE(lines.size(), 5u);
    if (lines.size() < 5) return {};
    EXPECT_EQ(lines[4], kColumnHeader);
    return Lines(lines.begin() + 5, lines.end());
}

Lines backendRows(VekProfileLogReader& reader, std::vector<ProfileEvent> events,
                  uint64_t timestamp = 7, const std::string& word = "EXECUTE") {
    std::ostringstream out;
    reader.writeCsvRows(out, std::move(events), timestamp, word);
    return splitLines(out.str());
}

class CsvExportTest : public testing::Test {
protected:
    VekProfileLogReader reader{"C:\\logs\\run1.bin", VisibilityLevel(5)};
};

TEST_F(CsvExportTest, ReproducesTheSampleExport) {
    reader.toolName = "example-tool";
    reader.toolVersion = "1.0.0";
    reader.backend = "ExampleBackend 2.1";
    reader.initTimestamp = 1000;
    reader.initDuration = 5320;
    reader.hasInitEvents = true;
    reader.initEvents = {u64Event("Backend init time", 4100)};
    reader.composeTimestamp = 2000;
    reader.composeDuration = 120;
    // Finalize events stay out while the finalize-events flag is down.
    reader.finalizes = {NamedSample{"g0", 800, 3000, {u64Event("Hidden", 1)}}};
    reader.deinitTimestamp = 9000;
    reader.deinitDuration = 300;
    reader.executions = {GraphSamples{
        "g0",
        {sample(4000, 950,
                {u64Event("Accelerator execute time", 700, 1,
                          {u64Event("Scratch memory", 512, kUnitBytes)})}),
         sample(5000, 940)}}};
    reader.hasNetRun = true;
    reader.netRunTimestamp = 6000;
    reader.netRunEvents = {u64Event("duration", 945), u64Event("count", 1, kUnitCount)};

    const Lines expected = {
        "input log file location, C:\\logs\\run1.bin",
        std::string("vek-profile-viewer version, ") + VEK_PROFILE_VIEWER_VERSION,
        "example-tool version, 1.0.0",
        "Backend version, ExampleBackend 2.1",
        kColumnHeader,
        "1000,INIT,5320,US,NETRUN,ROOT,null",
        "1000,INIT,4100,US,BACKEND,ROOT,Backend init time",
        "2000,COMPOSE GRAPHS,120,US,NETRUN,ROOT,null",
        "3000,FINALIZE,800,US,NETRUN,ROOT,Graph 0: g0",
        "9000,DE-INIT,300,US,NETRUN,ROOT,null",
        "4000,EXECUTE,950,US,NETRUN,ROOT,Graph 0: g0",
        "4000,EXECUTE,700,US,BACKEND,ROOT,Accelerator execute time",
        "4000,EXECUTE,512,BYTES,BACKEND,SUB-EVENT,Scratch memory",
        "5000,EXECUTE,940,US,NETRUN,ROOT,Graph 0: g0",
        "6000,EXECUTE IPS,1058.201050,INF/SEC,NETRUN,ROOT,null",
    };
    EXPECT_EQ(exportLines(reader), expected);
}

TEST_F(CsvExportTest, EveryGroupInItsFixedOrderWithGraphNumbersRestartingPerGroup) {
    reader.finalizes = {NamedSample{"fa", 11, 1, {}}, NamedSample{"fb", 12, 2, {}}};
    reader.executions = {GraphSamples{"ea", {sample(3, 13)}},
                         GraphSamples{"eb", {sample(4, 14), sample(5, 15)}}};
    reader.hasLibLoad = true;
    reader.libLoadTimestamp = 6;
    reader.libLoadEvents = {u64Event("dlopen", 16), u64Event("ignored", 99)};
    reader.applyBinarySections = {GraphSamples{"aa", {sample(7, 17, {u64Event("apply", 1)})}}};
    reader.finalizeAfterUpdates = {GraphSamples{"ta", {sample(8, 18)}},
                                   GraphSamples{"tb", {sample(9, 19, {u64Event("fin", 2)})}}};
    // Labels come out in the order first recorded, not in the map's order.
    reader.contextBinaryCalls[kContextGetBinarySizeLabel] = sample(21, 31);
    reader.contextBinaryCalls[kContextGetBinaryLabel] = sample(20, 30);
    reader.contextBinaryCallOrder = {kContextGetBinaryLabel, kContextGetBinarySizeLabel};
    reader.contextSectionCalls[kContextGetBinarySectionSizeLabel] = {sample(22, 32),
                                                                     sample(23, 33)};
    // The updater's record belongs to the other layout only.
    reader.updateBinarySections = {NamedSample{"", 40, 24, {}}};

    const Lines expected = {
        "0,INIT,0,US,NETRUN,ROOT,null",
        "0,COMPOSE GRAPHS,0,US,NETRUN,ROOT,null",
        "1,FINALIZE,11,US,NETRUN,ROOT,Graph 0: fa",
        "2,FINALIZE,12,US,NETRUN,ROOT,Graph 1: fb",
        "0,DE-INIT,0,US,NETRUN,ROOT,null",
        "3,EXECUTE,13,US,NETRUN,ROOT,Graph 0: ea",
        "4,EXECUTE,14,US,NETRUN,ROOT,Graph 1: eb",
        "5,EXECUTE,15,US,NETRUN,ROOT,Graph 1: eb",
        "6,DLOPEN LATENCY,16,US,NETRUN,ROOT,null",
        "7,APPLY BINARY SECTION,17,US,NETRUN,ROOT,Graph 0: aa",
        "7,APPLYBINARY,1,US,BACKEND,ROOT,apply",
        "8,FINALIZE AFTER TENSOR UPDATES,18,US,NETRUN,ROOT,Graph 0: ta",
        "9,FINALIZE AFTER TENSOR UPDATES,19,US,NETRUN,ROOT,Graph 1: tb",
        "9,FINALIZE_AFTER_TENSOR_UPDATES,2,US,BACKEND,ROOT,fin",
        "20,CONTEXT GET BINARY,30,US,NETRUN,ROOT,null",
        "21,CONTEXT GET BINARY SIZE,31,US,NETRUN,ROOT,null",
        "22,CONTEXT GET BINARY SECTION SIZE,32,US,NETRUN,ROOT,null",
        "23,CONTEXT GET BINARY SECTION SIZE,33,US,NETRUN,ROOT,null",
    };
    EXPECT_EQ(exportRows(reader), expected);
}

TEST_F(CsvExportTest, MethodRowsStillListACallMissingFromTheRecordedOrder) {
    reader.contextBinaryCalls[kContextGetBinaryLabel] = sample(20, 30);
    reader.contextBinaryCalls[kContextGetBinarySizeLabel] = sample(21, 31);
    reader.contextBinaryCallOrder = {kContextGetBinarySizeLabel, kContextGetBinarySizeLabel};
    const Lines rows = exportRows(reader);
    ASSERT_EQ(rows.size(), 5u);
    EXPECT_EQ(rows[3], "21,CONTEXT GET BINARY SIZE,31,US,NETRUN,ROOT,null");
    EXPECT_EQ(rows[4], "20,CONTEXT GET BINARY,30,US,NETRUN,ROOT,null");
}

TEST_F(CsvExportTest, InitBackendRowsComeFromTheFirstListThenTheSecond) {
    reader.initTimestamp = 50;
    reader.initEvents = {u64Event("first", 1)};
    reader.binaryInitEvents = {u64Event("second", 2)};
    // The rows between the INIT row and the COMPOSE GRAPHS row.
    auto initRows = [this] {
        const Lines rows = exportRows(reader);
        Lines between;
        for (size_t i = 1; i < rows.size() && rows[i].find("COMPOSE") == std::string::npos; ++i) {
            between.push_back(rows[i]);
        }
        return between;
    };
    EXPECT_EQ(initRows(), Lines{});
    reader.hasBinaryInit = true;
    EXPECT_EQ(initRows(), Lines{"50,INIT,2,US,BACKEND,ROOT,second"});
    reader.hasInitEvents = true;
    EXPECT_EQ(initRows(), Lines{"50,INIT,1,US,BACKEND,ROOT,first"});
}

TEST_F(CsvExportTest, FinalizeAndDeinitBackendRows) {
    reader.finalizes = {NamedSample{"g", 5, 60, {u64Event("fin", 3)}}};
    reader.deinitTimestamp = 70;
    reader.deinitEvents = {u64Event("teardown", 4, kUnitCycles)};
    reader.hasFinalizeEvents = true;
    const Lines expected = {
        "0,INIT,0,US,NETRUN,ROOT,null",
        "0,COMPOSE GRAPHS,0,US,NETRUN,ROOT,null",
        "60,FINALIZE,5,US,NETRUN,ROOT,Graph 0: g",
        "60,FINALIZE,3,US,BACKEND,ROOT,fin",
        "70,DE-INIT,0,US,NETRUN,ROOT,null",
        "70,DE-INIT,4,CYCLES,BACKEND,ROOT,teardown",
    };
    EXPECT_EQ(exportRows(reader), expected);
}

TEST_F(CsvExportTest, ObjectEventsAreSkippedButTheirOtherSubEventsAreWritten) {
    const std::vector<ProfileEvent> events = {
        objectEvent("blob", {u64Event("kept", 8, kUnitBytes), objectEvent("inner blob"),
                             u64Event("parent", 9, 1, {u64Event("grandchild", 10)})}),
        u64Event("plain", 11, 1, {objectEvent("child blob")}),
    };
    const Lines expected = {
        "7,EXECUTE,8,BYTES,BACKEND,SUB-EVENT,kept",
        "7,EXECUTE,9,US,BACKEND,SUB-EVENT,parent",
        "7,EXECUTE,11,US,BACKEND,ROOT,plain",
    };
    EXPECT_EQ(backendRows(reader, events), expected);
}

TEST_F(CsvExportTest, BackendRowsCarryUnitNamesAndValueTexts) {
    ProfileEvent unknownType = u64Event("unknown type", 5);
    unknownType.value.dataType = 0x999;
    ProfileEvent negative = u64Event("negative", std::numeric_limits<uint64_t>::max());
    negative.value.dataType = kDataTypeInt64;
    static const char text[] = "on";
    ProfileEvent textValue = u64Event("text", 0, kUnitNone);
    textValue.value.dataType = kDataTypeString;
    const char* address = text;
    std::memcpy(&textValue.value.payload, &address, sizeof address);

    const std::vector<ProfileEvent> events = {
        u64Event("u0", 1, 0), u64Event("u1", 2, 1), u64Event("u7", 3, 7),
        u64Event("c", 4, kUnitCycles), u64Event("n", 5, kUnitCount),
        unknownType, negative, textValue,
        u64Event("a,b", 6),
    };
    const Lines expected = {
        "3,DE-INIT,1,US,BACKEND,ROOT,u0",
        "3,DE-INIT,2,US,BACKEND,ROOT,u1",
        "3,DE-INIT,3,US,BACKEND,ROOT,u7",
        "3,DE-INIT,4,CYCLES,BACKEND,ROOT,c",
        "3,DE-INIT,5,COUNT,BACKEND,ROOT,n",
        "3,DE-INIT,,US,BACKEND,ROOT,unknown type",
        "3,DE-INIT,-1,US,BACKEND,ROOT,negative",
        "3,DE-INIT,on,NONE,BACKEND,ROOT,text",
        // No quoting: the comma in the identifier shifts the columns.
        "3,DE-INIT,6,US,BACKEND,ROOT,a,b",
    };
    EXPECT_EQ(backendRows(reader, events, 3, "DE-INIT"), expected);
}

TEST_F(CsvExportTest, CommasInGraphNamesAreWrittenAsTheyStand) {
    reader.executions = {GraphSamples{"g,1", {sample(3, 4)}}};
    const Lines rows = exportRows(reader);
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_EQ(rows[3], "3,EXECUTE,4,US,NETRUN,ROOT,Graph 0: g,1");
}

TEST_F(CsvExportTest, ExecuteRateRowNeedsTheFlagAndTwoEvents) {
    reader.netRunTimestamp = 6;
    reader.netRunEvents = {u64Event("duration", 945), u64Event("count", 1)};
    // INIT, COMPOSE GRAPHS and DE-INIT are always there.
    EXPECT_EQ(exportRows(reader).size(), 3u) << "no row without the flag";
    reader.hasNetRun = true;
    reader.netRunEvents = {u64Event("duration", 945)};
    EXPECT_EQ(exportRows(reader).size(), 3u) << "no row with one event";
    reader.netRunEvents.clear();
    EXPECT_EQ(exportRows(reader).size(), 3u) << "no row without events";
}

TEST_F(CsvExportTest, ExecuteRateTakesEventOneAsTheDurationUnlessEventZeroIsNamedSo) {
    reader.hasNetRun = true;
    reader.netRunTimestamp = 6;
    auto rateRow = [this] { return exportRows(reader).back(); };
    // 3 * 1e6 / 7 in single precision is 428571.4375.
    reader.netRunEvents = {u64Event("count", 3), u64Event("time", 7)};
    EXPECT_EQ(rateRow(), "6,EXECUTE IPS,428571.437500,INF/SEC,NETRUN,ROOT,null");
    // Only the exact name counts; event 1's name is never looked at.
    reader.netRunEvents = {u64Event("Duration", 945), u64Event("duration", 1)};
    EXPECT_EQ(rateRow(), "6,EXECUTE IPS,945000000.000000,INF/SEC,NETRUN,ROOT,null");
    reader.netRunEvents = {u64Event("duration", 0), u64Event("count", 5), u64Event("x", 1)};
    EXPECT_EQ(rateRow(), "6,EXECUTE IPS,0.000000,INF/SEC,NETRUN,ROOT,null");
}

TEST_F(CsvExportTest, StreamKeepsSixDecimalsAfterTheRateRow) {
    std::ostringstream out;
    reader.writeCsvExport(out);
    EXPECT_EQ(out.precision(), 0);
    EXPECT_TRUE(out.flags() & std::ios::fixed);
    reader.hasNetRun = true;
    reader.netRunEvents = {u64Event("duration", 2), u64Event("count", 1)};
    reader.writeCsvExport(out);
    EXPECT_EQ(out.precision(), 6);
    EXPECT_TRUE(out.flags() & std::ios::fixed);
}

TEST_F(CsvExportTest, LibLoadRowWritesThePayloadUnsignedWhateverItsType) {
    reader.libLoadTimestamp = 6;
    reader.libLoadEvents = {u64Event("dlopen", std::numeric_limits<uint64_t>::max())};
    reader.libLoadEvents[0].value.dataType = kDataTypeInt64;
    EXPECT_EQ(exportRows(reader).size(), 3u) << "no row without the flag";
    reader.hasLibLoad = true;
    EXPECT_EQ(exportRows(reader).back(),
              "6,DLOPEN LATENCY,18446744073709551615,US,NETRUN,ROOT,null");
    reader.libLoadEvents.clear();
    EXPECT_EQ(exportRows(reader).size(), 3u) << "no row without events";
}

TEST_F(CsvExportTest, LoraUpdaterLayoutWritesOnlyTheFirstUpdateRecord) {
    reader.loraAdapterUpdaterMode = true;
    reader.toolName = "zolra-lora-adapter-bin-updater";
    reader.executions = {GraphSamples{"g", {sample(3, 4)}}};
    reader.hasNetRun = true;
    reader.netRunEvents = {u64Event("duration", 2), u64Event("count", 1)};
    reader.updateBinarySections = {
        NamedSample{"", 40, 24,
                    {u64Event("patch", 5, kUnitBytes, {u64Event("part", 6)}),
                     objectEvent("blob")}},
        NamedSample{"", 41, 25, {u64Event("later", 7)}},
    };
    const Lines lines = exportLines(reader);
    const Lines expected = {
        "input log file location, C:\\logs\\run1.bin",
        std::string("vek-profile-viewer version, ") + VEK_PROFILE_VIEWER_VERSION,
        "zolra-lora-adapter-bin-updater version, ",
        "Backend version, ",
        kColumnHeader,
        "24,UPDATE BINARY SECTION,40,US,LABU,ROOT,null",
        "24,UPDATE_BINARY_SECTION,5,BYTES,BACKEND,ROOT,patch",
        "24,UPDATE_BINARY_SECTION,6,US,BACKEND,SUB-EVENT,part",
    };
    EXPECT_EQ(lines, expected);

    reader.updateBinarySections.clear();
    EXPECT_EQ(exportLines(reader).size(), 5u);
}

TEST_F(CsvExportTest, EmptyHeaderStillWritesAllFourHeaderRows) {
    const Lines lines = exportLines(reader);
    ASSERT_GE(lines.size(), 5u);
    EXPECT_EQ(lines[0], "input log file location, C:\\logs\\run1.bin");
    EXPECT_EQ(lines[2], " version, ");
    EXPECT_EQ(lines[3], "Backend version, ");
    EXPECT_EQ(lines[4], kColumnHeader);
}

// A host locale that groups digits must not reach the numbers of the export.
struct GroupingPunct : std::numpunct<char> {
    char do_thousands_sep() const override { return '\''; }
    std::string do_grouping() const override { return "\3"; }
    char do_decimal_point() const override { return '#'; }
};

TEST_F(CsvExportTest, NumbersIgnoreTheStreamsLocale) {
    reader.initTimestamp = 1234567;
    reader.initDuration = 5320;
    reader.hasNetRun = true;
    reader.netRunEvents = {u64Event("duration", 945), u64Event("count", 1)};
    std::ostringstream out;
    out.imbue(std::locale(std::locale::classic(), new GroupingPunct));
    reader.writeCsvExport(out);
    const Lines rows = splitLines(out.str());
    ASSERT_EQ(rows.size(), 9u);
    EXPECT_EQ(rows[5], "1234567,INIT,5320,US,NETRUN,ROOT,null");
    EXPECT_EQ(rows[8], "0,EXECUTE IPS,1058.201050,INF/SEC,NETRUN,ROOT,null");
}

}  // namespace
}  // namespace profiling
}  // namespace vek
