#include "chrometrace/TraceEventBuilder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "chrometrace/LintingRecords.h"
#include "chrometrace/PortableTraceWriter.h"
#include "chrometrace/TraceText.h"
#include "support/Golden.h"
#include "support/LogCapture.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using testlinting::event;
using testlinting::graphWithOps;
using testlinting::LintingReader;
using testlinting::OpSpec;
using testlinting::opRecord;

constexpr uint64_t kMax = ~uint64_t{0};

TEST(TraceEventBuilderTest, LaysWaitAndOpPairsOnOneCursor) {
    // Neither a 404 at the top level nor one below a non-404 child is an op
    // record, so their missing linting children are not a refusal.
    GraphSummary noOps = graphWithOps(
        "plain", {event(7, "Conv", 3), event(1, "Block", 4, {event(kOpRecordIdentifier, "x", 5)})});
    noOps.events.push_back(event(kOpRecordIdentifier, "top", 9));

    // Of repeated linting children the last counts; background names accumulate.
    const ProfileEvent duplicates = event(
        kOpRecordIdentifier, "dup", 30,
        {event(kWaitDurationIdentifier, "", 3),
         event(kOpBackgroundIdentifier, "", 10,
               {event(kOpBackgroundNameIdentifier, "x", 0),
                event(kWaitBackgroundNameIdentifier, "not an op item", 0), event(0, "other", 0)}),
         event(kWaitBackgroundIdentifier, "", 1, {event(kWaitBackgroundNameIdentifier, "w1", 0)}),
         event(77, "ignored", 1000), event(kResourceMaskIdentifier, "", 1),
         event(kWaitDurationIdentifier, "", 4),
         event(kOpBackgroundIdentifier, "", 20, {event(kOpBackgroundNameIdentifier, "y", 0)}),
         event(kWaitBackgroundIdentifier, "", 2,
               {event(kWaitBackgroundNameIdentifier, "", 0),
                event(kWaitBackgroundNameIdentifier, "w2", 0)}),
         event(kResourceMaskIdentifier, "", 2)});

    // Payloads are read as unsigned whatever their type says.
    ProfileEvent typed = opRecord(OpSpec{"f", 0, 0, 0, 0, 0, {}, {}});
    typed.value = EventValue{kDataTypeFloat64, 0x4059000000000000u};  // 100.0 as bits
    typed.children[0].value = EventValue{kDataTypeInt64, kMax};       // -1 as bits

    const struct {
        const char* what;
        std::vector<GraphSummary> graphs;
    } cases[] = {
        {"no graphs", {}},
        {"no executions, no op records", {GraphSummary{"empty", 0, 0, {}}, noOps}},
        {"one cursor across graphs; W = 0 lays the op pair only",
         {graphWithOps("g0", {opRecord({"op_a", 10, 100, 20, 5, 5, {"item_c"}, {"item_a", "item_b"}})}),
          graphWithOps("g1", {opRecord({"op_b", 0, 50, 0, 9, 0, {}, {"unused"}})})}},
        {"V = 0 lays the Wait pair only; W = V = 0 nothing",
         {graphWithOps("g", {opRecord({"waits", 5, 0, 99, 3, 7, {"never"}, {"c"}}),
                             opRecord({"idle", 0, 0, 4, 4, 7, {}, {}}),
                             opRecord({"runs", 0, 7, 0, 0, 0, {}, {}})})}},
        {"the mask's low byte, without Resources when empty",
         {graphWithOps("g", {opRecord({"m7", 0, 1, 0, 0, 7, {}, {}}), opRecord({"m4", 0, 1, 0, 0, 4, {}, {}}),
                             opRecord({"m8", 0, 1, 0, 0, 8, {}, {}}),
                             opRecord({"m261", 0, 1, 0, 0, 0x105, {}, {}})})}},
        {"duplicates", {graphWithOps("g", {duplicates})}},
        {"typed payloads", {graphWithOps("g", {typed})}},
        {"the cursor wraps",
         {graphWithOps("g0", {opRecord({"big", 0, kMax - 9, 0, 0, 0, {}, {}}),
                              opRecord({"wrap", 20, kMax, kMax, kMax, 0, {}, {}})}),
          graphWithOps("g1", {opRecord({"after", 0, 1, 0, 0, 0, {}, {}})})}},
    };
    // Per case its title, then one line per event (see exactSlices).
    std::string text;
    for (const auto& c : cases) {
        text += std::string("== ") + c.what + "\n";
        for (const std::string& line : testlinting::exactSlices(c.graphs)) text += line + "\n";
    }
    EXPECT_TRUE(testlog::matchesGolden(text, "chrometrace/exact_slices.txt"));
}

TEST(TraceEventBuilderTest, AnIncompleteOpRecordRefusesTheWholeLog) {
    const std::string kRefusal =
        "Log file contains incompatible data! Please provide log file generated using the "
        "linting profile!";
    testlog::TempDir dir;
    const std::string path = dir.file("trace.json");
    for (uint32_t missing : {kWaitDurationIdentifier, kOpBackgroundIdentifier,
                             kWaitBackgroundIdentifier, kResourceMaskIdentifier}) {
        SCOPED_TRACE(missing);
        ProfileEvent incomplete = opRecord(OpSpec{"late", 1, 1, 1, 1, 1, {}, {}});
        for (ProfileEvent& child : incomplete.children) {
            if (child.identifier == missing) child.identifier = 77;
        }
        LintingReader linting(
            {graphWithOps("g0", {opRecord(OpSpec{"ok", 1, 2, 3, 4, 5, {}, {}})}),
             graphWithOps("g1", {opRecord(OpSpec{"ok2", 0, 2, 0, 0, 0, {}, {}}), incomplete})});
        testlog::LogCapture capture;
        rapidjson::Document document;
        document.SetObject();
        EXPECT_FALSE(buildTraceDocument(linting.reader, document));
        EXPECT_EQ(document.MemberCount(), 0u);
        EXPECT_EQ(capture.count(kRefusal), 1u);
        EXPECT_EQ(capture.messages().size(), 1u);

        std::ostringstream portable;
        EXPECT_FALSE(writePortableTrace(linting.reader, portable));
        EXPECT_EQ(portable.str(), "");

        std::ofstream(path) << "old trace";
        testing::internal::CaptureStdout();
        EXPECT_FALSE(linting.reader.writeOutput(path));
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        EXPECT_EQ(testlog::readFile(path), "");
        EXPECT_EQ(capture.count(kRefusal), 3u);
        EXPECT_TRUE(capture.contains(kRefusal, 1));
    }
}

TEST(TraceTextTest, JoinNamesSeparatesByTheTextSoFar) {
    using Names = std::vector<std::string_view>;
    // An empty first item adds nothing; an empty later one leaves its separator.
    EXPECT_EQ(joinNames(Names{"", "b"}), "b");
    EXPECT_EQ(joinNames(Names{"", ""}), "");
    EXPECT_EQ(joinNames(Names{"a", ""}), "a, ");
}

}  // namespace
}  // namespace profiling
}  // namespace vek
