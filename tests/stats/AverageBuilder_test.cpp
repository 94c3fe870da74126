// The averages that loading builds call by call must be exactly those that
// the statistics step would compute from the samples afterwards.
#include "stats/AverageBuilder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "reader/VekProfileLogReader.h"
#include "stats/SampleBuilders.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using namespace testlog;
using testdata::treeText;

std::string listText(const std::vector<GraphSummary>& list) {
    std::string text;
    for (const GraphSummary& g : list) {
        text += g.graphName + " " + std::to_string(g.netRunUs) + " " + std::to_string(g.auxValue) +
                ": " + treeText(g.events, true) + "\n";
    }
    return text;
}

// A call whose tree changes from call to call: names move, repeat, appear and
// vanish; object events come and go; values have every type.
std::vector<EventSpec> callEvents(uint64_t call) {
    std::vector<EventSpec> ops;
    for (uint64_t op = 0; op < 20 + call % 5; ++op) {
        std::vector<EventSpec> work;
        for (uint64_t item = 0; item < (call + op) % 4; ++item) {
            work.push_back(EventSpec::u64("work " + std::to_string((call * 7 + op + item) % 5), item));
        }
        ops.push_back(EventSpec::u64("op " + std::to_string((op * 3 + call) % 23), op + call, 1, 404)
                          .withChildren({EventSpec::u64("wait", call % 3),
                                         EventSpec::u64("background", op).withChildren(work)}));
    }
    std::vector<EventSpec> events = {EventSpec::u64("Accelerator", call).withChildren(ops)};
    if (call % 3 == 0) events.push_back(EventSpec::object("dump", {1, 2}, "dump.bin"));
    if (call % 2 == 0) events.push_back(EventSpec::i64("signed", -static_cast<int64_t>(call)));
    events.push_back(EventSpec::f64("ratio", 0.5 * static_cast<double>(call)));
    events.push_back(EventSpec::text("mode", call % 2 ? "odd" : "even"));
    events.push_back(EventSpec::u64("Accelerator", 1));  // a repeated name at the top
    return events;
}

TEST(AverageBuilderTest, AveragesBuiltWhileLoadingEqualTheAveragesOfTheSamples) {
    TempDir dir;
    LogWriter log;
    const char* graphs[] = {"g0", "g1", "g2"};
    uint64_t call = 0;
    for (int chunk = 0; chunk < 3; ++chunk) {
        ChunkSpec& written = log.chunk();
        for (int i = 0; i < 12; ++i, ++call) {
            const uint64_t start = 1000 * call;
            const uint64_t length = call % 4 == 0 ? 0 : 50 + call;  // some calls take no time
            written.message(MessageSpec(kExecute).graph(graphs[call % 3]).times(start, start + length)
                                .withEvents(callEvents(call)))
                .message(MessageSpec(kApplyBinarySection).graph(graphs[(call + 1) % 2])
                             .times(start, start + call).withEvents(callEvents(call + 100)))
                .message(MessageSpec(kFinalizeAfterTensorUpdates).graph("g0").times(start, start + 7)
                             .visible(call % 5 == 0 ? 9 : 0)  // some hidden
                             .withEvents(callEvents(call + 200)));
        }
    }
    log.writeTo(dir.file("calls.log"));

    VekProfileLogReader reader(dir.file("calls.log"), VisibilityLevel(5));
    ASSERT_TRUE(reader.loadLog(false));
    using Lists = SummaryLists VekProfileLogReader::*;
    const Lists kinds[] = {&VekProfileLogReader::executeStats,
                           &VekProfileLogReader::applyBinarySectionStats,
                           &VekProfileLogReader::finalizeAfterUpdatesStats};
    std::vector<SummaryLists> loaded;
    for (Lists kind : kinds) loaded.push_back(reader.*kind);
    ASSERT_EQ(loaded[0].average.size(), 3u);
    ASSERT_EQ(loaded[2].average.size(), 1u);
    EXPECT_TRUE(reader.runningAverages.executions.empty());  // used up

    // Computed again from the samples alone.
    reader.buildStatistics();
    for (size_t k = 0; k < 3; ++k) {
        EXPECT_EQ(listText(loaded[k].average), listText((reader.*kinds[k]).average));
        EXPECT_EQ(listText(loaded[k].maximum), listText((reader.*kinds[k]).maximum));
        EXPECT_EQ(listText(loaded[k].minimum), listText((reader.*kinds[k]).minimum));
    }
}

}  // namespace
}  // namespace profiling
}  // namespace vek
