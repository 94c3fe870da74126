// The trace drawn from averaged linting op records, exact and portable, and
// how it is written out.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "chrometrace/LintingIdentifiers.h"
#include "chrometrace/PortableTraceWriter.h"
#include "chrometrace/TraceEventBuilder.h"
#include "chrometrace/Utf8Repair.h"
#include "reader/VekProfileLogReaderChrometrace.h"
#include "support/Golden.h"
#include "support/LogCapture.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using testlog::readFile;
constexpr uint64_t kMax = ~uint64_t{0};

ProfileEvent event(uint32_t identifier, std::string name, uint64_t payload, std::vector<ProfileEvent> children = {},
                   uint32_t unit = 0) {
    ProfileEvent result;
    result.identifier = identifier;
    result.name = std::move(name);
    result.value = EventValue{kDataTypeUInt64, payload};
    result.unit = unit;
    result.children = std::move(children);
    return result;
}

struct OpSpec {
    std::string name;
    uint64_t wait, duration, opBackground, waitBackground, mask;  // 5001, the 404's own, 5002, 5003, 5004
    std::vector<std::string> opBackgroundNames, waitBackgroundNames;  // 5005 under 5002, 5006 under 5003
};

ProfileEvent opRecord(const OpSpec& op) {
    auto items = [](uint32_t identifier, const std::vector<std::string>& names) {
        std::vector<ProfileEvent> result;
        for (const std::string& name : names) result.push_back(event(identifier, name, 0));
        return result;
    };
    return event(kOpRecordIdentifier, op.name, op.duration,
                 {event(kWaitDurationIdentifier, "wait", op.wait),
                  event(kOpBackgroundIdentifier, "bg", op.opBackground,
                        items(kOpBackgroundNameIdentifier, op.opBackgroundNames)),
                  event(kWaitBackgroundIdentifier, "wait bg", op.waitBackground,
                        items(kWaitBackgroundNameIdentifier, op.waitBackgroundNames)),
                  event(kResourceMaskIdentifier, "resources", op.mask)});
}

GraphSummary graphWithOps(std::string graphName, std::vector<ProfileEvent> ops) {
    return GraphSummary{std::move(graphName), 1000, 0, {event(0, "Accelerator", 1000, std::move(ops))}};
}

struct LintingReader {
    explicit LintingReader(std::vector<GraphSummary> graphs = {}) {
        reader.executeStats.average = std::move(graphs);
    }
    VekProfileLogReaderChrometrace reader{"log.bin", VisibilityLevel(5)};
};

// One trace event as "lane name @ts +dur", then " cname=..." and " res=..."
// when present; the lane is the first letter of the thread's name.
std::string sliceText(const std::string& lane, const rapidjson::Value& e) {
    std::string repaired;
    std::string line = lane.substr(0, 1) + " " + std::string(validUtf8(e["name"].GetString(), repaired)) +
                       " @" + std::to_string(e["ts"].GetUint64()) + " +" + std::to_string(e["dur"].GetUint64());
    if (e.HasMember("cname")) line += std::string(" cname=") + e["cname"].GetString();
    if (e["args"].HasMember("Resources")) line += std::string(" res=") + e["args"]["Resources"].GetString();
    return line;
}

// The exact trace's events as sliceText lines (exact_trace.json shows their members in order).
std::vector<std::string> exactSlices(std::vector<GraphSummary> graphs) {
    LintingReader linting(std::move(graphs));
    rapidjson::Document document;
    document.SetObject();
    EXPECT_TRUE(buildTraceDocument(linting.reader, document));
    std::vector<std::string> lines;
    if (!document.HasMember("traceEvents")) return lines;
    for (const rapidjson::Value& e : document["traceEvents"].GetArray()) {
        EXPECT_EQ(e["args"]["Duration"].GetUint64(), e["dur"].GetUint64());
        lines.push_back(sliceText(e["tid"].GetString(), e));
    }
    return lines;
}

std::vector<GraphSummary> wrappingGraphs() {
    return {graphWithOps("g0", {opRecord({"big", 0, kMax - 9, 0, 0, 0, {}, {}}),
                                opRecord({"wrap", 20, kMax, kMax, kMax, 0, {}, {}})}),
            graphWithOps("g1", {opRecord({"after", 0, 1, 0, 0, 0, {}, {}})})};
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
    } cases[] = {
        {"no graphs", {}},
        {"no executions, no op records", {GraphSummary{"empty", 0, 0, {}}, noOps}},
        // An empty first background name adds nothing, an empty later one leaves its separator.
        {"one cursor across graphs; W = 0 lays the op pair only",
         {graphWithOps("g0", {opRecord({"op_a", 10, 100, 20, 5, 5, {"", "item_c"}, {"item_a", "item_b"}})}),
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
        {"the cursor wraps", wrappingGraphs()},
    };
    std::string text;
    for (const auto& c : cases) {
        text += std::string("== ") + c.what + "\n";
        for (const std::string& line : exactSlices(c.graphs)) text += line + "\n";
    }
    EXPECT_TRUE(testlog::matchesGolden(text, "chrometrace/exact_slices.txt"));
}

std::pair<bool, std::string> writeOutput(VekProfileLogReaderChrometrace& reader, const std::string& path) {
    testing::internal::CaptureStdout();
    const bool result = reader.writeOutput(path);
    return {result, testing::internal::GetCapturedStdout()};
}

TEST(TraceEventBuilderTest, AnIncompleteOpRecordRefusesTheWholeLog) {
    const std::string kRefusal =
        "Log file contains incompatible data! Please provide log file generated using the linting profile!";
    testlog::TempDir dir;
    const std::string path = dir.file("trace.json");
    for (uint32_t missing : {kWaitDurationIdentifier, kOpBackgroundIdentifier, kWaitBackgroundIdentifier,
                             kResourceMaskIdentifier}) {
        SCOPED_TRACE(missing);
        ProfileEvent incomplete = opRecord(OpSpec{"late", 1, 1, 1, 1, 1, {}, {}});
        for (ProfileEvent& child : incomplete.children) {
            if (child.identifier == missing) child.identifier = 77;
        }
        LintingReader linting({graphWithOps("g0", {opRecord(OpSpec{"ok", 1, 2, 3, 4, 5, {}, {}})}),
                               graphWithOps("g1", {opRecord(OpSpec{"ok2", 0, 2, 0, 0, 0, {}, {}}), incomplete})});
        testlog::LogCapture capture;
        rapidjson::Document document;
        document.SetObject();
        EXPECT_FALSE(buildTraceDocument(linting.reader, document));
        EXPECT_EQ(document.MemberCount(), 0u);
        EXPECT_EQ(capture.messages().size(), 1u);
        std::ostringstream portable;
        EXPECT_FALSE(writePortableTrace(linting.reader, portable));
        EXPECT_EQ(portable.str(), "");
        std::ofstream(path) << "old trace";
        EXPECT_EQ(writeOutput(linting.reader, path), std::make_pair(false, std::string()));
        EXPECT_EQ(readFile(path), "");
        EXPECT_EQ(capture.count(kRefusal), 3u);
        EXPECT_TRUE(capture.contains(kRefusal, 1));
    }
}

TEST(ChrometraceOutputTest, RefusedPathsWriteAndPrintNothing) {
    testlog::TempDir dir;
    // A failed write (/dev/full) is a failure too, not a short file presented as success.
    for (const std::string& path : {std::string(), dir.file("missing/trace.json"), std::string("/dev/full")}) {
        SCOPED_TRACE(path);
        if (path == "/dev/full" && !std::filesystem::exists(path)) continue;
        LintingReader chrome;
        testlog::LogCapture capture;
        EXPECT_EQ(writeOutput(chrome.reader, path), std::make_pair(false, std::string()));
        EXPECT_TRUE(capture.contains(path.empty() ? "Output chrometraceFile not provided."
                                                  : "Invalid output chrometraceFile: [" + path + "]", 1));
    }
}

// Hosts that stream the trace (compressed, to a temporary file) get the very bytes of the file.
TEST(ChrometraceOutputTest, StreamedTraceIsTheFileByteForByte) {
    testlog::TempDir dir;
    const std::string path = dir.file("trace.json");
    const std::vector<GraphSummary> cases[] = {
        {}, {graphWithOps("g0", {opRecord(OpSpec{"conv \"1\"", 10, 20, 30, 40, 5, {"dma", ""}, {"w"}}),
                                 opRecord(OpSpec{"relu", 0, 7, 0, 0, 0, {}, {}})})}};
    for (const auto& graphs : cases) {
        LintingReader chrome(graphs);
        std::ostringstream trace, summary;
        ASSERT_TRUE(writeTrace(&chrome.reader, trace, summary, TraceFormat::Exact));
        // A second call rewrites the file rather than appending to it.
        for (int call = 0; call < 2; ++call) {
            EXPECT_EQ(writeOutput(chrome.reader, path), std::make_pair(true, summary.str()));
            EXPECT_EQ(readFile(path), trace.str());
        }
    }
    EXPECT_TRUE(testlog::matchesGolden(readFile(path), "chrometrace/exact_trace.json"));
    LintingReader empty;
    EXPECT_TRUE(writeOutput(empty.reader, path).first);
    EXPECT_EQ(readFile(path), "{\n    \"traceEvents\": []\n}\n");
    // Only the chrome-trace reader draws traces.
    VekProfileLogReader plain(dir.file("none.bin"), VisibilityLevel(1));
    std::ostringstream none, summary;
    EXPECT_FALSE(writeTrace(&plain, none, summary, TraceFormat::Exact));
    EXPECT_EQ(none.str(), "");
}

// The reserved identifiers 9000..9009 are hidden with their children; the
// doubled blank between value and unit is kept.
TEST(ChrometraceBackendListingTest, HidesTheReservedRangeAndKeepsTheDoubledBlank) {
    const std::vector<ProfileEvent> events = {
        event(0, "Accelerator", 12,
              {event(kResourceMaskIdentifier, "Resources", 5), event(kOpBackgroundNameIdentifier, "item_a", 99),
               event(9005, "hidden", 1, {event(0, "under hidden", 1)}),
               event(0, "Conv", 7, {event(0, "deep", 4)}, kUnitNone)},
              kUnitCycles),
        event(9000, "first hidden", 1),
        event(9009, "last hidden", 1),
        event(9010, "edge", 1, {}, kUnitCount),
        event(8999, "low", 2, {}, 7),
        event(kWaitBackgroundNameIdentifier, "names", 3),
        event(kResourceMaskIdentifier, "mask", 0x103),
    };
    LintingReader chrome;
    VekProfileLogReader& base = chrome.reader;  // reached through the virtual slot
    std::ostringstream out;
    base.writeBackendSection(out, events, 1);  // depth 1 is what the summary passes
    // Depth 0 wraps the top-level names only.
    base.writeBackendSection(out, {events[0].children[1], events[3], events[5]}, 0);
    EXPECT_TRUE(testlog::matchesGolden(out.str(), "chrometrace/backend_listing.txt"));
}

struct Written {
    std::string text;
    PortableTraceShape shape;
};

Written writePortable(const std::vector<GraphSummary>& graphs) {
    LintingReader linting(graphs);
    std::ostringstream out;
    Written written;
    EXPECT_TRUE(writePortableTrace(linting.reader, out, &written.shape));
    written.text = out.str();
    return written;
}

// The portable trace's slices as sliceText lines, checking its JSON, its UTF-8 and its lanes on the way.
std::vector<std::string> portableSlices(const std::string& text) {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseValidateEncodingFlag>(text.c_str(), text.size());
    EXPECT_FALSE(document.HasParseError()) << "at " << document.GetErrorOffset();
    if (document.HasParseError()) return {};
    EXPECT_STREQ(document["displayTimeUnit"].GetString(), "ms");
    using Thread = std::pair<uint64_t, uint64_t>;
    std::map<Thread, std::string> threadNames;
    std::map<Thread, std::vector<std::pair<uint64_t, uint64_t>>> spans;
    std::vector<std::string> slices;
    for (const rapidjson::Value& e : document["traceEvents"].GetArray()) {
        const Thread thread(e["pid"].GetUint64(), e["tid"].GetUint64());
        if (e["ph"] == "M") {
            if (e["name"] == "thread_name") threadNames[thread] = e["args"]["name"].GetString();
            continue;
        }
        EXPECT_EQ(threadNames.count(thread), 1u) << "a slice on an unnamed thread";
        const uint64_t ts = e["ts"].GetUint64(), dur = e["dur"].GetUint64();
        spans[thread].emplace_back(ts, dur > kMax - ts ? kMax : ts + dur);
        slices.push_back(sliceText(threadNames[thread], e));
    }
    for (auto& [thread, list] : spans) {
        std::sort(list.begin(), list.end());
        for (size_t i = 1; i < list.size(); ++i) {
            EXPECT_GE(list[i].first, list[i - 1].second) << "overlap, pid " << thread.first << " tid " << thread.second;
        }
    }
    return slices;
}

// Background work outlasting its op or wait, names not UTF-8 or with control characters, no resources.
std::vector<GraphSummary> awkwardGraphs() {
    return {graphWithOps("mobile\xFFnet",
                         {opRecord({"Conv\t1", 10, 100, 150, 25, 5, {"DMA"}, {"Weights\xC3"}}),
                          opRecord({"Relu", 0, 20, 5, 0, 0, {"Bias"}, {}}),
                          opRecord({"Add\xE2\x82\xAC", 4, 30, 10, 2, 2, {"late", "spill"}, {}})}),
            graphWithOps("tail\n", {opRecord({"Softmax", 0, 7, 9, 0, 1, {}, {}})})};
}

// Every slice of the exact trace, on named lanes where none overlaps another.
TEST(PortableTraceWriterTest, KeepsEverySliceOfTheExactTraceWithoutOverlaps) {
    std::vector<ProfileEvent> everLonger;
    for (uint64_t i = 0; i < 40; ++i) {
        everLonger.push_back(opRecord({"op", i % 3, 10, 1000 - i, 50, 1, {"bg"}, {"wbg"}}));
    }
    const struct {
        const char* what;
        std::vector<GraphSummary> graphs;
    } cases[] = {
        {"awkward", awkwardGraphs()},
        {"background that outlasts everything after it", {graphWithOps("g", everLonger)}},
        {"the cursor wraps", wrappingGraphs()},
        {"graphs without op records", {graphWithOps("a", {}), graphWithOps("b", {})}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const Written written = writePortable(c.graphs);
        const std::vector<std::string> slices = portableSlices(written.text);
        EXPECT_EQ(slices, exactSlices(c.graphs));
        EXPECT_EQ(written.shape.slices, slices.size());
        EXPECT_EQ(written.shape.processes, c.graphs.size());
    }
    const Written awkward = writePortable(awkwardGraphs());
    EXPECT_TRUE(testlog::matchesGolden(awkward.text, "chrometrace/portable_trace.json"));
    EXPECT_EQ(awkward.shape.threads, 5u);  // one extra background lane in the first graph
    const Written none = writePortable({});
    EXPECT_TRUE(testlog::matchesGolden(none.text, "chrometrace/portable_no_graphs.json"));
    EXPECT_EQ(none.shape.slices, 0u);
    LintingReader fine(awkwardGraphs());
    std::ostringstream failing;
    failing.setstate(std::ios::badbit);
    EXPECT_FALSE(writePortableTrace(fine.reader, failing));
}

TEST(Utf8RepairTest, EachMaximalIllFormedSubsequenceBecomesOneReplacement) {
    const std::string r = "\xEF\xBF\xBD";  // U+FFFD
    const struct {
        std::string bytes, expected;
    } cases[] = {
        {"", ""},
        {std::string("plain\0ascii\x7F", 12), std::string("plain\0ascii\x7F", 12)},
        {"\xE2\x82\xAC \xF0\x9F\x98\x80 \xF4\x8F\xBF\xBF", "\xE2\x82\xAC \xF0\x9F\x98\x80 \xF4\x8F\xBF\xBF"},
        {"\x80\xBF", r + r},                  // continuation bytes alone
        {"\xC0\xAF", r + r},                  // overlong two-byte form
        {"\xE0\x80\x80", r + r + r},          // overlong three-byte form
        {"\xED\xA0\x80", r + r + r},          // a surrogate
        {"\xF4\x90\x80\x80", r + r + r + r},  // past U+10FFFF
        {"\xF5\xFF", r + r},                  // never a lead byte
        {"a\xE2\x82" "b", "a" + r + "b"},     // cut short inside: one replacement
        {"op_\xF0\x9F\x98", "op_" + r},       // cut short at the end
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.bytes));
        std::string repaired = "stale";
        const std::string_view valid = validUtf8(c.bytes, repaired);
        EXPECT_EQ(valid, c.expected);
        // Valid text is handed back as it is, not copied.
        EXPECT_TRUE(c.bytes != c.expected || valid.data() == c.bytes.data());
    }
}

}  // namespace
}  // namespace profiling
}  // namespace vek
