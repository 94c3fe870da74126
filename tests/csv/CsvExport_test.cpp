#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
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
const std::string kVersionRow =
    std::string("vek-profile-viewer version, ") + VEK_PROFILE_VIEWER_VERSION;

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
    return u64Event(std::move(name), 0, kUnitObject, std::move(children));
}

ExecutionSample sample(uint64_t timestamp, uint64_t time, std::vector<ProfileEvent> events = {}) {
    return ExecutionSample{time, timestamp, std::move(events)};
}

Lines linesOf(const std::string& text) {
    EXPECT_TRUE(text.empty() || text.back() == '\n') << "the export must end with a line end";
    Lines lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// A host locale that groups digits must not reach the numbers of the export.
struct GroupingPunct : std::numpunct<char> {
    char do_thousands_sep() const override { return '\''; }
    std::string do_grouping() const override { return "\3"; }
    char do_decimal_point() const override { return '#'; }
};

Lines exportLines(VekProfileLogReader& reader) {
    std::ostringstream out;
    out.imbue(std::locale(std::locale::classic(), new GroupingPunct));
    reader.writeCsvExport(out);
    return linesOf(out.str());
}

// The event rows, after the four header rows and the column header.
Lines exportRows(VekProfileLogReader& reader) {
    Lines lines = exportLines(reader);
    lines.erase(lines.begin(), lines.begin() + std::min<size_t>(5, lines.size()));
    return lines;
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
    // The first INIT list wins over the second.
    reader.hasBinaryInit = true;
    reader.binaryInitEvents = {u64Event("Binary init time", 1)};
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
        kVersionRow,
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
    // Without the first INIT list the second one gives the INIT backend rows.
    reader.hasBinaryInit = true;
    reader.binaryInitEvents = {u64Event("binary init", 2)};
    reader.finalizes = {NamedSample{"fa", 11, 1, {u64Event("fin", 3)}},
                        NamedSample{"fb", 12, 2, {}}};
    reader.hasFinalizeEvents = true;
    reader.deinitTimestamp = 70;
    reader.deinitEvents = {u64Event("teardown", 4, kUnitCycles)};
    reader.executions = {GraphSamples{"ea", {sample(3, 13)}},
                         GraphSamples{"e,b", {sample(4, 14), sample(5, 15)}}};
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
        "input log file location, C:\\logs\\run1.bin",
        kVersionRow,
        // An unsaved header still gives both of its rows.
        " version, ",
        "Backend version, ",
        kColumnHeader,
        "0,INIT,0,US,NETRUN,ROOT,null",
        "0,INIT,2,US,BACKEND,ROOT,binary init",
        "0,COMPOSE GRAPHS,0,US,NETRUN,ROOT,null",
        "1,FINALIZE,11,US,NETRUN,ROOT,Graph 0: fa",
        "1,FINALIZE,3,US,BACKEND,ROOT,fin",
        "2,FINALIZE,12,US,NETRUN,ROOT,Graph 1: fb",
        "70,DE-INIT,0,US,NETRUN,ROOT,null",
        "70,DE-INIT,4,CYCLES,BACKEND,ROOT,teardown",
        "3,EXECUTE,13,US,NETRUN,ROOT,Graph 0: ea",
        // No quoting: a comma in the graph name is written as it stands.
        "4,EXECUTE,14,US,NETRUN,ROOT,Graph 1: e,b",
        "5,EXECUTE,15,US,NETRUN,ROOT,Graph 1: e,b",
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
    EXPECT_EQ(exportLines(reader), expected);
}

TEST_F(CsvExportTest, BackendRowsSkipObjectsAtBothLevelsAndStopBelowTheSubEvents) {
    ProfileEvent unknownType = u64Event("unknown type", 5);
    unknownType.value.dataType = 0x999;
    const std::vector<ProfileEvent> events = {
        objectEvent("blob", {u64Event("kept", 8, kUnitBytes), objectEvent("inner blob"),
                             u64Event("parent", 9, 1, {u64Event("grandchild", 10)})}),
        u64Event("plain", 11, 0, {objectEvent("child blob")}),
        u64Event("u7", 3, 7),
        u64Event("c", 4, kUnitCycles),
        unknownType,
        u64Event("a,b", 6),
    };
    const Lines expected = {
        "3,DE-INIT,8,BYTES,BACKEND,SUB-EVENT,kept",
        "3,DE-INIT,9,US,BACKEND,SUB-EVENT,parent",
        "3,DE-INIT,11,US,BACKEND,ROOT,plain",
        "3,DE-INIT,3,US,BACKEND,ROOT,u7",
        "3,DE-INIT,4,CYCLES,BACKEND,ROOT,c",
        "3,DE-INIT,,US,BACKEND,ROOT,unknown type",
        // No quoting: the comma in the identifier shifts the columns.
        "3,DE-INIT,6,US,BACKEND,ROOT,a,b",
    };
    std::ostringstream out;
    reader.writeCsvRows(out, events, 3, "DE-INIT");
    EXPECT_EQ(linesOf(out.str()), expected);
}

TEST_F(CsvExportTest, RateAndLibraryLoadRowsNeedTheirFlagAndEnoughEvents) {
    ProfileEvent signedLoad = u64Event("dlopen", std::numeric_limits<uint64_t>::max());
    signedLoad.value.dataType = kDataTypeInt64;
    const struct {
        bool hasNetRun;
        std::vector<ProfileEvent> rateEvents;
        bool hasLibLoad;
        std::vector<ProfileEvent> loadEvents;
        const char* row;  // after DE-INIT; null: none
    } cases[] = {
        {false, {u64Event("duration", 945), u64Event("count", 1)}, false, {signedLoad}, nullptr},
        {true, {u64Event("duration", 945)}, true, {}, nullptr},
        // 3 * 1e6 / 7 in single precision is 428571.4375.
        {true, {u64Event("count", 3), u64Event("time", 7)}, false, {},
         "6,EXECUTE IPS,428571.437500,INF/SEC,NETRUN,ROOT,null"},
        // Only event 0's exact name counts; event 1's name is never looked at.
        {true, {u64Event("Duration", 945), u64Event("duration", 1)}, false, {},
         "6,EXECUTE IPS,945000000.000000,INF/SEC,NETRUN,ROOT,null"},
        {true, {u64Event("duration", 0), u64Event("count", 5), u64Event("x", 1)}, false, {},
         "6,EXECUTE IPS,0.000000,INF/SEC,NETRUN,ROOT,null"},
        // The payload is written unsigned whatever its type says.
        {false, {}, true, {signedLoad},
         "6,DLOPEN LATENCY,18446744073709551615,US,NETRUN,ROOT,null"},
    };
    reader.netRunTimestamp = 6;
    reader.libLoadTimestamp = 6;
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);
        reader.hasNetRun = cases[i].hasNetRun;
        reader.netRunEvents = cases[i].rateEvents;
        reader.hasLibLoad = cases[i].hasLibLoad;
        reader.libLoadEvents = cases[i].loadEvents;
        // INIT, COMPOSE GRAPHS and DE-INIT are always there, the optional row after them.
        const Lines rows = exportRows(reader);
        ASSERT_FALSE(rows.empty());
        EXPECT_EQ(rows.back(), cases[i].row ? cases[i].row : "0,DE-INIT,0,US,NETRUN,ROOT,null");
    }
}

TEST_F(CsvExportTest, LoraUpdaterLayoutWritesOnlyTheFirstUpdateRecord) {
    reader.loraAdapterUpdaterMode = true;
    reader.executions = {GraphSamples{"g", {sample(3, 4)}}};
    reader.hasNetRun = true;
    reader.netRunEvents = {u64Event("duration", 2), u64Event("count", 1)};
    reader.updateBinarySections = {
        NamedSample{"", 40, 24, {u64Event("patch", 5, kUnitBytes, {u64Event("part", 6)})}},
        NamedSample{"", 41, 25, {u64Event("later", 7)}},
    };
    EXPECT_EQ(exportRows(reader), (Lines{"24,UPDATE BINARY SECTION,40,US,LABU,ROOT,null",
                                         "24,UPDATE_BINARY_SECTION,5,BYTES,BACKEND,ROOT,patch",
                                         "24,UPDATE_BINARY_SECTION,6,US,BACKEND,SUB-EVENT,part"}));
    reader.updateBinarySections.clear();
    EXPECT_EQ(exportLines(reader).size(), 5u);
}

}  // namespace
}  // namespace profiling
}  // namespace vek
