#include "chrometrace/TraceEventBuilder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "chrometrace/LintingRecords.h"
#include "chrometrace/TraceText.h"
#include "support/LogCapture.h"

namespace vek {
namespace profiling {
namespace {

using testlinting::event;
using testlinting::graphWithOps;
using testlinting::LintingReader;
using testlinting::OpSpec;
using testlinting::opRecord;
using Slices = std::vector<std::string>;

constexpr uint64_t kMax = ~uint64_t{0};

// Builds the trace and gives one line per event: lane initial, name,
// "@ts +dur", then cname and resources when present. Also checks what every
// event shares, its members' order included.
Slices build(std::vector<GraphSummary> graphs) {
    LintingReader linting(std::move(graphs));
    rapidjson::Document document;
    document.SetObject();
    EXPECT_TRUE(buildTraceDocument(linting.reader, document));
    EXPECT_EQ(document.MemberCount(), 1u);
    if (!document.HasMember("traceEvents") || !document["traceEvents"].IsArray()) {
        ADD_FAILURE() << "no \"traceEvents\" array";
        return {};
    }
    Slices lines;
    for (const rapidjson::Value& e : document["traceEvents"].GetArray()) {
        EXPECT_EQ(e["pid"].GetUint64(), 0u);
        EXPECT_STREQ(e["ph"].GetString(), "X");
        EXPECT_TRUE(e["ts"].IsUint64() && e["dur"].IsUint64());
        EXPECT_EQ(e["args"]["Duration"].GetUint64(), e["dur"].GetUint64());
        std::string keys;
        for (const auto& member : e.GetObject()) keys += std::string(member.name.GetString()) + " ";
        for (const auto& member : e["args"].GetObject()) keys += member.name.GetString();
        EXPECT_EQ(keys, std::string("name pid tid ph ts dur ") +
                            (e.HasMember("cname") ? "cname " : "") + "args Duration" +
                            (e["args"].HasMember("Resources") ? "Resources" : ""));
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
        Slices slices;
    } cases[] = {
        {"no graphs", {}, {}},
        {"no executions, no op records", {GraphSummary{"empty", 0, 0, {}}, noOps}, {}},
        {"one cursor across graphs; W = 0 lays the op pair only",
         {graphWithOps("g0",
                       {opRecord({"op_a", 10, 100, 20, 5, 5, {"item_c"}, {"item_a", "item_b"}})}),
          graphWithOps("g1", {opRecord({"op_b", 0, 50, 0, 9, 0, {}, {"unused"}})})},
         {"F Wait @0 +10 cname=grey", "B item_a, item_b @0 +5", "F op_a @10 +100 res=PQA, DMA",
          "B item_c @10 +20", "F op_b @110 +50", "B  @110 +0"}},
        {"V = 0 lays the Wait pair only; W = V = 0 nothing",
         {graphWithOps("g", {opRecord({"waits", 5, 0, 99, 3, 7, {"never"}, {"c"}}),
                             opRecord({"idle", 0, 0, 4, 4, 7, {}, {}}),
                             opRecord({"runs", 0, 7, 0, 0, 0, {}, {}})})},
         {"F Wait @0 +5 cname=grey", "B c @0 +3", "F runs @5 +7", "B  @5 +0"}},
        {"the mask's low byte, without Resources when empty",
         {graphWithOps("g", {opRecord({"m7", 0, 1, 0, 0, 7, {}, {}}),
                             opRecord({"m4", 0, 1, 0, 0, 4, {}, {}}),
                             opRecord({"m8", 0, 1, 0, 0, 8, {}, {}}),
                             opRecord({"m261", 0, 1, 0, 0, 0x105, {}, {}})})},
         {"F m7 @0 +1 res=PQA, PQB, DMA", "B  @0 +0", "F m4 @1 +1 res=DMA", "B  @1 +0",
          "F m8 @2 +1", "B  @2 +0", "F m261 @3 +1 res=PQA, DMA", "B  @3 +0"}},
        {"duplicates", {graphWithOps("g", {duplicates})},
         {"F Wait @0 +4 cname=grey", "B w1, , w2 @0 +2", "F dup @4 +30 res=PQB", "B x, y @4 +20"}},
        {"typed payloads", {graphWithOps("g", {typed})},
         {"F Wait @0 +18446744073709551615 cname=grey", "B  @0 +0",
          "F f @18446744073709551615 +4636737291354636288", "B  @18446744073709551615 +0"}},
        {"the cursor wraps",
         {graphWithOps("g0", {opRecord({"big", 0, kMax - 9, 0, 0, 0, {}, {}}),
                              opRecord({"wrap", 20, kMax, kMax, kMax, 0, {}, {}})}),
          graphWithOps("g1", {opRecord({"after", 0, 1, 0, 0, 0, {}, {}})})},
         {"F big @0 +18446744073709551606", "B  @0 +0",
          "F Wait @18446744073709551606 +20 cname=grey",
          "B  @18446744073709551606 +18446744073709551615",
          "F wrap @10 +18446744073709551615", "B  @10 +18446744073709551615", "F after @9 +1",
          "B  @9 +0"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(build(c.graphs), c.slices);
    }
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
        EXPECT_EQ(document.MemberCount(), 0u);
        EXPECT_TRUE(capture.contains(
            "Log file contains incompatible data! Please provide log file generated using the "
            "linting profile!",
            1));
        EXPECT_EQ(capture.messages().size(), 1u);
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
