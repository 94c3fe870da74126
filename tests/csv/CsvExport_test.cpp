// The CSV export: its groups and rows, and the text of values and units.
#include <gtest/gtest.h>

#include <iterator>
#include <limits>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

#include "csv/EventValueText.h"
#include "reader/VekProfileLogReader.h"
#include "support/Golden.h"

namespace vek {
namespace profiling {
namespace {

using Lines = std::vector<std::string>;

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

// A host locale that groups digits must not reach the numbers of the export.
struct GroupingPunct : std::numpunct<char> {
    char do_thousands_sep() const override { return '\''; }
    std::string do_grouping() const override { return "\3"; }
    char do_decimal_point() const override { return '#'; }
};

std::string exportText(VekProfileLogReader& reader) {
    std::ostringstream out;
    out.imbue(std::locale(std::locale::classic(), new GroupingPunct));
    reader.writeCsvExport(out);
    return out.str();
}

// The event rows, after the four header rows and the column header.
Lines exportRows(VekProfileLogReader& reader) {
    const std::string text = exportText(reader);
    EXPECT_EQ(text.back(), '\n');
    Lines lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    lines.erase(lines.begin(), lines.begin() + 5);
    return lines;
}

TEST(CsvExportTest, EveryGroupInItsFixedOrderWithGraphNumbersRestartingPerGroup) {
    VekProfileLogReader reader{"C:\\logs\\run1.bin", VisibilityLevel(5)};
    // Without the first INIT list the second one gives the INIT backend rows.
    reader.hasBinaryInit = true;
    reader.binaryInitEvents = {u64Event("binary init", 2)};
    reader.finalizes = {NamedSample{"fa", 11, 1, {u64Event("fin", 3)}}, NamedSample{"fb", 12, 2, {}}};
    reader.hasFinalizeEvents = true;
    reader.deinitTimestamp = 7000;
    // Backend rows skip objects at both levels, stop below the sub-events and
    // leave the value of an unknown type blank.
    ProfileEvent unknownType = u64Event("unknown type", 5);
    unknownType.value.dataType = 0x999;
    reader.deinitEvents = {
        objectEvent("blob", {u64Event("kept", 8, kUnitBytes), objectEvent("inner blob"),
                             u64Event("parent", 9, 1, {u64Event("grandchild", 10)})}),
        u64Event("plain", 11, 0, {objectEvent("child blob")}), u64Event("u7", 3, 7),
        u64Event("teardown", 4000, kUnitCycles), unknownType};
    // No quoting: a comma in a name is written as it stands.
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
    reader.contextSectionCalls[kContextGetBinarySectionSizeLabel] = {sample(22, 32), sample(23, 33)};
    // The updater's record belongs to the other layout only.
    reader.updateBinarySections = {NamedSample{"", 40, 24, {}}};
    // An unsaved header still gives both of its rows.
    EXPECT_TRUE(testlog::matchesGolden(exportText(reader), "csv/every_group.csv"));

    // The first INIT list wins over the second.
    reader.hasInitEvents = true;
    reader.initEvents = {u64Event("init", 5)};
    EXPECT_EQ(exportRows(reader).at(1), "0,INIT,5,US,BACKEND,ROOT,init");
    // Finalize events stay out while their flag is down.
    reader.hasFinalizeEvents = false;
    EXPECT_EQ(exportRows(reader).at(4), "2,FINALIZE,12,US,NETRUN,ROOT,Graph 1: fb");
}

TEST(CsvExportTest, RateAndLibraryLoadRowsNeedTheirFlagAndEnoughEvents) {
    VekProfileLogReader reader{"log.bin", VisibilityLevel(5)};
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
        // 16777217 is not representable as a float and becomes 16777216.
        {true, {u64Event("count", 16777217), u64Event("duration", 1000000)}, false, {},
         "6,EXECUTE IPS,16777216.000000,INF/SEC,NETRUN,ROOT,null"},
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

constexpr uint64_t kAllOnes = ~uint64_t{0};

// The high half of a float payload must not be read.
TEST(EventValueTextTest, EachTypeCodeReadsItsOwnWidthAndSignedness) {
    static const char text[] = "Accelerator, fast";
    const struct {
        uint32_t code;
        uint64_t payload;
        const char* expected;
    } cases[] = {
        {0x8, 0xFF, "-1"},
        {0x16, 0xFFFF8000, "-32768"},
        {0x32, 0xABCD000080000000ull, "-2147483648"},
        {0x64, kAllOnes, "-1"},
        {0x108, 0x1FF, "255"},
        {0x116, 0x1FFFF, "65535"},
        {0x132, 0x1FFFFFFFFull, "4294967295"},
        {0x164, kAllOnes, "18446744073709551615"},
        {0x508, 0x2FE, "254"},
        // 0x226 is a signed 16-bit integer, not a half float (0x3C00 is 1.0 as one).
        {0x226, 0xFFFF, "-1"},
        {0x226, 0x3C00, "15360"},
        {0x232, 0xDEADBEEF3FC00000ull, "1.500000"},
        {0x232, 0xDEADBEEFBE800000ull, "-0.250000"},
        {0x264, 0x4415AF1D78B58C40ull, "100000000000000000000.000000"},
        {0x608, reinterpret_cast<uintptr_t>(text), "Accelerator, fast"},
        {0x608, 0, ""},
        {0x165, 12345, ""},
        {0xFFFFFFFF, 12345, ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(eventValueToString(c.code, c.payload), c.expected)
            << std::hex << "code 0x" << c.code << " payload 0x" << c.payload;
    }
}

}  // namespace
}  // namespace profiling
}  // namespace vek
