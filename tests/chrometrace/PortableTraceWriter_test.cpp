#include "chrometrace/PortableTraceWriter.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "chrometrace/LintingRecords.h"
#include "support/Golden.h"

namespace vek {
namespace profiling {
namespace {

using testlinting::graphWithOps;
using testlinting::LintingReader;
using testlinting::opRecord;

constexpr uint64_t kMax = ~uint64_t{0};

struct Written {
    bool result;
    std::string text;
    PortableTraceShape shape;
};

Written writePortable(const std::vector<GraphSummary>& graphs) {
    LintingReader linting(graphs);
    std::ostringstream out;
    Written written{};
    written.result = writePortableTrace(linting.reader, out, &written.shape);
    written.text = out.str();
    return written;
}

// Every slice of the portable text as exactSlices gives them, checking on the
// way that it is strict JSON in valid UTF-8, that every thread is named and
// that no two slices of one thread overlap.
std::vector<std::string> portableSlices(const std::string& text) {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseValidateEncodingFlag>(text.c_str(), text.size());
    EXPECT_FALSE(document.HasParseError()) << "at " << document.GetErrorOffset();
    if (document.HasParseError()) return {};
    EXPECT_STREQ(document["displayTimeUnit"].GetString(), "ms");

    std::map<std::pair<uint64_t, uint64_t>, std::string> threadNames;
    std::map<std::pair<uint64_t, uint64_t>, std::vector<std::pair<uint64_t, uint64_t>>> spans;
    std::vector<std::string> slices;
    for (const rapidjson::Value& e : document["traceEvents"].GetArray()) {
        const auto thread = std::make_pair(e["pid"].GetUint64(), e["tid"].GetUint64());
        if (e["ph"] == "M") {
            if (e["name"] == "thread_name") threadNames[thread] = e["args"]["name"].GetString();
            continue;
        }
        EXPECT_EQ(threadNames.count(thread), 1u) << "a slice on an unnamed thread";
        const uint64_t ts = e["ts"].GetUint64();
        const uint64_t dur = e["dur"].GetUint64();
        spans[thread].emplace_back(ts, dur > kMax - ts ? kMax : ts + dur);
        slices.push_back(testlinting::sliceText(threadNames[thread], e));
    }
    for (auto& [thread, list] : spans) {
        std::sort(list.begin(), list.end());
        for (size_t i = 1; i < list.size(); ++i) {
            EXPECT_GE(list[i].first, list[i - 1].second)
                << "overlap on pid " << thread.first << " tid " << thread.second;
        }
    }
    return slices;
}

// Two graphs: background work that outlasts its op or its wait, names that
// are not UTF-8 or hold control characters, an op without resources.
std::vector<GraphSummary> awkwardGraphs() {
    return {graphWithOps("mobile\xFFnet",
                         {opRecord({"Conv\t1", 10, 100, 150, 25, 5, {"DMA"}, {"Weights\xC3"}}),
                          opRecord({"Relu", 0, 20, 5, 0, 0, {"Bias"}, {}}),
                          opRecord({"Add\xE2\x82\xAC", 4, 30, 10, 2, 2, {"late", "spill"}, {}})}),
            graphWithOps("tail\n", {opRecord({"Softmax", 0, 7, 9, 0, 1, {}, {}})})};
}

TEST(PortableTraceWriterTest, AwkwardLogAndNoGraphsGiveTheGoldenTraces) {
    const Written written = writePortable(awkwardGraphs());
    ASSERT_TRUE(written.result);
    EXPECT_TRUE(testlog::matchesGolden(written.text, "chrometrace/portable_trace.json"));
    EXPECT_EQ(written.shape.processes, 2u);
    EXPECT_EQ(written.shape.threads, 5u);  // one extra background lane in the first graph
    EXPECT_EQ(written.shape.slices, 12u);
    // Without graphs: the metadata only.
    const Written none = writePortable({});
    ASSERT_TRUE(none.result);
    EXPECT_TRUE(testlog::matchesGolden(none.text, "chrometrace/portable_no_graphs.json"));
    EXPECT_EQ(none.shape.slices, 0u);
    // A failed stream is a failure.
    LintingReader fine(awkwardGraphs());
    std::ostringstream failing;
    failing.setstate(std::ios::badbit);
    EXPECT_FALSE(writePortableTrace(fine.reader, failing));
}

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
        {"the cursor wraps",
         {graphWithOps("g0", {opRecord({"big", 0, kMax - 9, 0, 0, 0, {}, {}}),
                              opRecord({"wrap", 20, kMax, kMax, kMax, 0, {}, {}})}),
          graphWithOps("g1", {opRecord({"after", 0, 1, 0, 0, 0, {}, {}})})}},
        {"graphs without op records", {graphWithOps("a", {}), graphWithOps("b", {})}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const Written written = writePortable(c.graphs);
        ASSERT_TRUE(written.result);
        const std::vector<std::string> slices = portableSlices(written.text);
        EXPECT_EQ(slices, testlinting::exactSlices(c.graphs));
        EXPECT_EQ(written.shape.slices, slices.size());
        EXPECT_EQ(written.shape.processes, c.graphs.size());
    }
}

TEST(Utf8RepairTest, EachMaximalIllFormedSubsequenceBecomesOneReplacement) {
    const std::string r = "\xEF\xBF\xBD";  // U+FFFD
    const struct {
        std::string bytes;
        std::string expected;
    } cases[] = {
        {"", ""},
        {std::string("plain\0ascii\x7F", 12), std::string("plain\0ascii\x7F", 12)},
        {"\xE2\x82\xAC \xF0\x9F\x98\x80 \xF4\x8F\xBF\xBF", "\xE2\x82\xAC \xF0\x9F\x98\x80 \xF4\x8F\xBF\xBF"},
        {"\x80\xBF", r + r},                     // continuation bytes alone
        {"\xC0\xAF", r + r},                     // overlong two-byte form
        {"\xE0\x80\x80", r + r + r},             // overlong three-byte form
        {"\xED\xA0\x80", r + r + r},             // a surrogate
        {"\xF4\x90\x80\x80", r + r + r + r},     // past U+10FFFF
        {"\xF5\xFF", r + r},                     // never a lead byte
        {"a\xE2\x82" "b", "a" + r + "b"},        // cut short inside: one replacement
        {"op_\xF0\x9F\x98", "op_" + r},          // cut short at the end
        {"\xC3", r},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.bytes));
        std::string repaired = "stale";
        const std::string_view valid = validUtf8(c.bytes, repaired);
        EXPECT_EQ(valid, c.expected);
        // Valid text is handed back as it is, not copied.
        if (c.bytes == c.expected) {
            EXPECT_EQ(valid.data(), c.bytes.data());
        }
    }
}

}  // namespace
}  // namespace profiling
}  // namespace vek
