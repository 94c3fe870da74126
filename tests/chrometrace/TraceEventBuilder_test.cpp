#include "chrometrace/TraceEventBuilder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "chrometrace/LintingRecords.h"
#include "chrometrace/TraceText.h"
#include "reader/VekProfileLogReaderChrometrace.h"
#include "support/LogCapture.h"

namespace vek {
namespace profiling {
namespace {

using testlinting::event;
using testlinting::graphWithOps;
using testlinting::OpSpec;
using testlinting::opRecord;

constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
const char* const kIncompatible =
    "Log file contains incompatible data! Please provide log file generated using the "
    "linting profile!";

// A reader whose execute averages are the given graphs, as loading leaves them.
struct LintingReader {
    explicit LintingReader(std::vector<GraphSummary> graphs) {
        reader.executeStats.average = std::move(graphs);
    }
    VekProfileLogReaderChrometrace reader{"log.bin", VisibilityLevel(5)};
};

std::vector<std::string> memberNames(const rapidjson::Value& object) {
    std::vector<std::string> names;
    for (auto it = object.MemberBegin(); it != object.MemberEnd(); ++it) {
        names.emplace_back(it->name.GetString());
    }
    return names;
}

// One line per event: lane initial, name, "@ts +dur", then cname and
// resources when present. Also checks the members every event shares.
std::vector<std::string> slices(const rapidjson::Document& document) {
    std::vector<std::string> lines;
    const rapidjson::Value& events = document["traceEvents"];
    for (const rapidjson::Value& e : events.GetArray()) {
        EXPECT_EQ(e["pid"].GetUint64(), 0u);
        EXPECT_STREQ(e["ph"].GetString(), "X");
        EXPECT_TRUE(e["ts"].IsUint64());
        EXPECT_TRUE(e["dur"].IsUint64());
        EXPECT_EQ(e["args"]["Duration"].GetUint64(), e["dur"].GetUint64());
        std::string line = std::string(e["tid"].GetString()).substr(0, 1) + " " +
                           e["name"].GetString() + " @" + std::to_string(e["ts"].GetUint64()) +
                           " +" + std::to_string(e["dur"].GetUint64());
        if (e.HasMember("cname")) line += std::string(" cname=") + e["cname"].GetString();
        if (e["args"].HasMember("Resources")) {
            line += std::string(" res=") + e["args"]["Resources"].GetString();
        }
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> build(std::vector<GraphSummary> graphs) {
    LintingReader linting(std::move(graphs));
    rapidjson::Document document;
    document.SetObject();
    EXPECT_TRUE(buildTraceDocument(linting.reader, document));
    EXPECT_TRUE(document.HasMember("traceEvents"));
    if (!document.HasMember("traceEvents")) return {};
    return slices(document);
}

TEST(TraceEventBuilderTest, NothingToDrawGivesAnEmptyArray) {
    EXPECT_TRUE(build({}).empty());

    GraphSummary noExecutions;
    noExecutions.graphName = "empty";
    // Neither a 404 at the top level nor one below a non-404 child is an op
    // record, so their missing linting children are not a refusal.
    GraphSummary noOps = graphWithOps(
        "plain", {event(7, "Conv", 3), event(1, "Block", 4, {event(kOpRecordIdentifier, "x", 5)})});
    noOps.events.push_back(event(kOpRecordIdentifier, "top", 9));

    LintingReader linting({noExecutions, noOps});
    rapidjson::Document document;
    document.SetObject();
    ASSERT_TRUE(buildTraceDocument(linting.reader, document));
    ASSERT_EQ(memberNames(document), std::vector<std::string>{"traceEvents"});
    EXPECT_TRUE(document["traceEvents"].IsArray());
    EXPECT_TRUE(document["traceEvents"].Empty());
}

TEST(TraceEventBuilderTest, OneCursorRunsAcrossGraphs) {
    OpSpec first{"op_a", 10, 100, 20, 5, 5, {"item_c"}, {"item_a", "item_b"}};
    OpSpec second{"op_b", 0, 50, 0, 9, 0, {}, {"unused"}};
    EXPECT_EQ(build({graphWithOps("g0", {opRecord(first)}),
                     graphWithOps("g1", {opRecord(second)})}),
              (std::vector<std::string>{
                  "F Wait @0 +10 cname=grey",
                  "B item_a, item_b @0 +5",
                  "F op_a @10 +100 res=PQA, DMA",
                  "B item_c @10 +20",
                  // W = 0: only the op pair, and a 5002 without names gives "".
                  "F op_b @110 +50",
                  "B  @110 +0",
              }));
}

TEST(TraceEventBuilderTest, AWaitWithoutAnOpLaysOnlyTheWaitPair) {
    OpSpec waitOnly{"waits", 5, 0, 99, 3, 7, {"never"}, {"c"}};
    OpSpec nothing{"idle", 0, 0, 4, 4, 7, {}, {}};
    OpSpec opOnly{"runs", 0, 7, 0, 0, 0, {}, {}};
    EXPECT_EQ(build({graphWithOps("g", {opRecord(waitOnly), opRecord(nothing), opRecord(opOnly)})}),
              (std::vector<std::string>{
                  "F Wait @0 +5 cname=grey",
                  "B c @0 +3",
                  "F runs @5 +7",
                  "B  @5 +0",
              }));
}

TEST(TraceEventBuilderTest, EventMembersComeInTheirFixedOrder) {
    OpSpec op{"op", 10, 100, 20, 5, 1, {"b"}, {"c"}};
    LintingReader linting({graphWithOps("g", {opRecord(op)})});
    rapidjson::Document document;
    document.SetObject();
    ASSERT_TRUE(buildTraceDocument(linting.reader, document));
    const rapidjson::Value& events = document["traceEvents"];
    ASSERT_EQ(events.Size(), 4u);

    const std::vector<std::string> plain{"name", "pid", "tid", "ph", "ts", "dur", "args"};
    const std::vector<std::string> withColour{"name", "pid", "tid", "ph",
                                              "ts",   "dur", "cname", "args"};
    EXPECT_EQ(memberNames(events[0]), withColour);
    EXPECT_EQ(memberNames(events[1]), plain);
    EXPECT_EQ(memberNames(events[2]), plain);
    EXPECT_EQ(memberNames(events[3]), plain);
    EXPECT_EQ(memberNames(events[0]["args"]), std::vector<std::string>{"Duration"});
    EXPECT_EQ(memberNames(events[2]["args"]), (std::vector<std::string>{"Duration", "Resources"}));
    EXPECT_STREQ(events[0]["tid"].GetString(), "Foreground");
    EXPECT_STREQ(events[1]["tid"].GetString(), "Background");
}

TEST(TraceEventBuilderTest, ResourceMaskUsesTheLowByteOnly) {
    std::vector<ProfileEvent> ops;
    for (uint64_t mask : {7u, 4u, 8u, 0x105u}) {
        ops.push_back(opRecord(OpSpec{"m" + std::to_string(mask), 0, 1, 0, 0, mask, {}, {}}));
    }
    EXPECT_EQ(build({graphWithOps("g", std::move(ops))}),
              (std::vector<std::string>{
                  "F m7 @0 +1 res=PQA, PQB, DMA", "B  @0 +0",
                  "F m4 @1 +1 res=DMA", "B  @1 +0",
                  "F m8 @2 +1", "B  @2 +0",  // no "Resources" member at all
                  "F m261 @3 +1 res=PQA, DMA", "B  @3 +0",
              }));
}

TEST(TraceEventBuilderTest, LastDuplicateCountsAndBackgroundNamesAccumulate) {
    ProfileEvent op = event(
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
    EXPECT_EQ(build({graphWithOps("g", {op})}), (std::vector<std::string>{
                                                    "F Wait @0 +4 cname=grey",
                                                    "B w1, , w2 @0 +2",
                                                    "F dup @4 +30 res=PQB",
                                                    "B x, y @4 +20",
                                                }));
}

TEST(TraceEventBuilderTest, PayloadsAreReadAsUnsignedWhateverTheirType) {
    ProfileEvent op = opRecord(OpSpec{"f", 0, 0, 0, 0, 0, {}, {}});
    op.value = EventValue{kDataTypeFloat64, 0x4059000000000000u};  // 100.0 as bits
    op.children[0].value = EventValue{kDataTypeInt64, kMax};       // -1 as bits
    EXPECT_EQ(build({graphWithOps("g", {op})}),
              (std::vector<std::string>{
                  "F Wait @0 +18446744073709551615 cname=grey", "B  @0 +0",
                  "F f @18446744073709551615 +4636737291354636288", "B  @18446744073709551615 +0",
              }));
}

TEST(TraceEventBuilderTest, CursorWrapsAsUnsignedArithmetic) {
    OpSpec big{"big", 0, kMax - 9, 0, 0, 0, {}, {}};
    OpSpec wrapping{"wrap", 20, kMax, kMax, kMax, 0, {}, {}};
    OpSpec after{"after", 0, 1, 0, 0, 0, {}, {}};
    EXPECT_EQ(build({graphWithOps("g0", {opRecord(big), opRecord(wrapping)}),
                     graphWithOps("g1", {opRecord(after)})}),
              (std::vector<std::string>{
                  "F big @0 +18446744073709551606",
                  "B  @0 +0",
                  "F Wait @18446744073709551606 +20 cname=grey",
                  "B  @18446744073709551606 +18446744073709551615",
                  "F wrap @10 +18446744073709551615",
                  "B  @10 +18446744073709551615",
                  "F after @9 +1",
                  "B  @9 +0",
              }));
}

TEST(TraceEventBuilderTest, AnIncompleteOpRecordRefusesTheWholeLog) {
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
        EXPECT_FALSE(document.HasMember("traceEvents"));
        EXPECT_EQ(document.MemberCount(), 0u);
        EXPECT_TRUE(capture.contains(kIncompatible, 1));
        EXPECT_EQ(capture.messages().size(), 1u);
    }
}

TEST(TraceEventBuilderTest, AddTraceEventConsumesResourcesAndColour) {
    rapidjson::Document document;
    rapidjson::Value events(rapidjson::kArrayType);
    std::string resources = "PQA";
    std::string cname = "grey";
    addTraceEvent(events, document.GetAllocator(), "n", 1, 2, true, std::move(resources),
                  std::move(cname));
    EXPECT_TRUE(resources.empty());  // NOLINT(bugprone-use-after-move): consumed by contract
    EXPECT_TRUE(cname.empty());      // NOLINT(bugprone-use-after-move)
    ASSERT_EQ(events.Size(), 1u);
    EXPECT_STREQ(events[0]["cname"].GetString(), "grey");
    EXPECT_STREQ(events[0]["args"]["Resources"].GetString(), "PQA");
}

TEST(TraceTextTest, JoinNamesSeparatesByTheTextSoFar) {
    using Names = std::vector<std::string_view>;
    EXPECT_EQ(joinNames(Names{}), "");
    EXPECT_EQ(joinNames(Names{"a"}), "a");
    EXPECT_EQ(joinNames(Names{"a", "b"}), "a, b");
    EXPECT_EQ(joinNames(Names{"a", "", "c"}), "a, , c");
    EXPECT_EQ(joinNames(Names{"", "b"}), "b");
    EXPECT_EQ(joinNames(Names{"", ""}), "");
    EXPECT_EQ(joinNames(Names{"a", ""}), "a, ");
}

TEST(TraceTextTest, ResourceLabelListsKnownBitsInFixedOrder) {
    EXPECT_EQ(resourceLabel(0), "");
    EXPECT_EQ(resourceLabel(1), "PQA");
    EXPECT_EQ(resourceLabel(2), "PQB");
    EXPECT_EQ(resourceLabel(4), "DMA");
    EXPECT_EQ(resourceLabel(3), "PQA, PQB");
    EXPECT_EQ(resourceLabel(6), "PQB, DMA");
    EXPECT_EQ(resourceLabel(7), "PQA, PQB, DMA");
    EXPECT_EQ(resourceLabel(8), "");
    EXPECT_EQ(resourceLabel(0xFF), "PQA, PQB, DMA");
}

}  // namespace
}  // namespace profiling
}  // namespace vek
