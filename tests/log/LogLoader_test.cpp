#include <sys/stat.h>

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "log/EventConversion.h"
#include "reader/VekProfileLogReader.h"
#include "support/LogCapture.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using namespace testlog;

const char* const kCorrupt = "Corrupted flatbuffer binary stream";
const char* const kReaderEof = "profiling::VekProfileLogReader reached EOF!";

class LogLoaderTest : public ::testing::Test {
protected:
    // Writes the log and loads it with a reader at the given visibility level.
    bool load(const LogWriter& log, int8_t level = 10, bool flag = false) {
        path_ = dir_.file("profile.bin");
        log.writeTo(path_);
        reader_ = std::make_unique<VekProfileLogReader>(path_, static_cast<VisibilityLevel>(level));
        return reader_->loadLog(flag);
    }

    // One chunk holding the given messages.
    static LogWriter oneChunk(std::vector<MessageSpec> messages) {
        LogWriter log;
        ChunkSpec& chunk = log.chunk();
        for (MessageSpec& message : messages) chunk.message(std::move(message));
        return log;
    }

    VekProfileLogReader& reader() { return *reader_; }

    TempDir dir_;
    std::string path_;
    std::unique_ptr<VekProfileLogReader> reader_;
    LogCapture capture_;
};

MessageSpec execute(const std::string& graph, uint64_t start, uint64_t end) {
    return MessageSpec(kExecute).graph(graph).times(start, end);
}

std::vector<std::string> graphNames(const std::vector<GraphSamples>& list) {
    std::vector<std::string> names;
    for (const GraphSamples& graph : list) names.push_back(graph.graphName);
    return names;
}

std::vector<std::string> eventNames(EventSpan events) {
    std::vector<std::string> names;
    for (const ProfileEvent& event : events) names.push_back(event.name);
    return names;
}

// --- framing and refusals ---

TEST_F(LogLoaderTest, EmptyFileLoadsAnEmptyModel) {
    ASSERT_TRUE(load(LogWriter{}, 10, true));
    EXPECT_TRUE(reader().loadFlag);
    EXPECT_FALSE(reader().headerSaved);
    EXPECT_TRUE(reader().executions.empty());
    EXPECT_TRUE(reader().finalizes.empty());
    EXPECT_EQ(reader().initDuration, 0u);
    EXPECT_EQ(capture_.count(kCorrupt), 0u);
}

TEST_F(LogLoaderTest, MissingFileOrDirectoryIsRefused) {
    for (const std::string& path : {dir_.file("absent.bin"), dir_.path()}) {
        capture_.clear();
        VekProfileLogReader reader(path, static_cast<VisibilityLevel>(10));
        EXPECT_FALSE(reader.loadLog(true));
        EXPECT_TRUE(capture_.contains("Invalid or nonexistent file: " + path, 1));
        EXPECT_FALSE(reader.loadFlag);
    }
}

TEST_F(LogLoaderTest, LengthFieldCutShortEndsTheLogNormally) {
    for (size_t tail = 1; tail <= 3; ++tail) {
        capture_.clear();
        LogWriter log = oneChunk({execute("g", 0, 10)});
        log.rawBytes(std::vector<uint8_t>(tail, 0x40));
        ASSERT_TRUE(load(log)) << tail;
        ASSERT_EQ(reader().executions.size(), 1u);
        EXPECT_EQ(capture_.count(kCorrupt), 0u);
    }
}

TEST_F(LogLoaderTest, LengthsTheFileCannotSupplyAreCorruptChunks) {
    const std::vector<uint8_t> good = buildChunk(ChunkSpec{}.message(execute("g", 0, 10)));
    std::vector<uint8_t> cutBody = lengthPrefixed(good);
    cutBody.pop_back();
    const std::vector<std::vector<uint8_t>> tails = {
        {0xf0, 0xff, 0xff, 0xff, 1, 2, 3},  // far more than is left
        cutBody,                            // body one byte short
        {0, 0, 0, 0},                       // zero length: below the minimum
        {5, 0, 0, 0, 1, 2, 3, 4, 5},        // fits, but too short to verify
    };
    for (size_t i = 0; i < tails.size(); ++i) {
        capture_.clear();
        LogWriter log = oneChunk({MessageSpec(kContextCreate).times(1, 2),
                                  MessageSpec(kFinalize).graph("g").times(3, 9)});
        log.rawBytes(tails[i]);
        EXPECT_FALSE(load(log, 10, true)) << i;
        EXPECT_EQ(capture_.count(kCorrupt), 1u) << i;
        EXPECT_TRUE(capture_.contains(kCorrupt, 1)) << i;
        // What came before stays, but nothing is derived from it.
        EXPECT_EQ(reader().finalizes.size(), 1u) << i;
        EXPECT_EQ(reader().initDuration, 0u) << i;
        EXPECT_FALSE(reader().loadFlag) << i;
    }
}

TEST_F(LogLoaderTest, CorruptChunkAfterAGoodOneKeepsTheEarlierData) {
    MessageSpec broken = execute("g", 0, 5);
    broken.omitTiming = true;
    LogWriter log = oneChunk({execute("g", 0, 10)});
    log.chunk().message(execute("g", 0, 20)).message(broken);
    log.chunk().message(execute("g", 0, 30));
    EXPECT_FALSE(load(log));
    ASSERT_EQ(reader().executions.size(), 1u);
    ASSERT_EQ(reader().executions[0].samples.size(), 1u);
    EXPECT_EQ(reader().executions[0].samples[0].netRunUs, 10u);
    EXPECT_EQ(capture_.count(kCorrupt), 1u);
}

TEST_F(LogLoaderTest, ReadsEveryChunkAndLogsTheEndOfEach) {
    LogWriter log = oneChunk({execute("g", 0, 10)});
    log.chunk();  // no message vector at all
    log.chunk().message(execute("g", 0, 20)).message(execute("h", 0, 30));
    ASSERT_TRUE(load(log));
    EXPECT_EQ(graphNames(reader().executions), (std::vector<std::string>{"g", "h"}));
    EXPECT_EQ(reader().executions[0].samples.size(), 2u);
    EXPECT_EQ(capture_.count(kReaderEof), 3u);
    EXPECT_TRUE(capture_.contains(kReaderEof, 5));
    // The stream is left empty, not pointing into a released chunk.
    capture_.clear();
    EXPECT_FALSE(reader().readNextMessage());
    EXPECT_TRUE(reader().reachedEof);
    EXPECT_EQ(capture_.count(kReaderEof), 1u);
}

TEST_F(LogLoaderTest, ReadsALogFromAPipe) {
    const std::string fifo = dir_.file("pipe");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    LogWriter log = oneChunk({execute("g", 0, 10)});
    log.rawBytes({0xf0, 0xff, 0xff, 0x7f, 1, 2, 3});  // a length the pipe never fills
    const std::vector<uint8_t> bytes = log.bytes();
    std::thread writer([&] {
        std::ofstream out(fifo, std::ios::binary);
        out.write(reinterpret_cast<const char*>(bytes.data()),
                  static_cast<std::streamsize>(bytes.size()));
    });
    VekProfileLogReader reader(fifo, static_cast<VisibilityLevel>(10));
    const bool loaded = reader.loadLog(false);
    writer.join();
    EXPECT_FALSE(loaded);
    EXPECT_EQ(reader.executions.size(), 1u);
    EXPECT_EQ(capture_.count(kCorrupt), 1u);
}

// A salvage load finishes at a cut or corrupt chunk as at the end of the
// file; either way the reader tells where the log broke.
TEST_F(LogLoaderTest, SalvageLoadFinishesAtTheBreakAndSaysWhere) {
    std::vector<uint8_t> cut = lengthPrefixed(buildChunk(ChunkSpec{}.message(execute("g", 0, 9))));
    cut.resize(cut.size() - 3);
    const struct {
        std::vector<uint8_t> tail;
        ChunkProblemKind kind;
    } cases[] = {
        {cut, ChunkProblemKind::CutChunk},
        {lengthPrefixed(std::vector<uint8_t>(16, 0)), ChunkProblemKind::InvalidChunk},
        {{1, 2}, ChunkProblemKind::TrailingBytes},  // ends the log normally, salvage or not
        {{}, ChunkProblemKind::None},
    };
    for (const auto& c : cases) {
        for (const bool salvage : {false, true}) {
            SCOPED_TRACE(std::to_string(static_cast<int>(c.kind)) + (salvage ? " salvage" : ""));
            LogWriter log = oneChunk({MessageSpec(kContextCreate).times(1, 2),
                                      MessageSpec(kFinalize).graph("g").times(3, 9)});
            log.chunk().message(execute("g", 0, 10)).message(execute("g", 0, 20));
            log.rawBytes(c.tail);
            path_ = dir_.file("profile.bin");
            log.writeTo(path_);
            reader_ = std::make_unique<VekProfileLogReader>(path_, VisibilityLevel(10));
            EXPECT_TRUE(setSalvageLoad(reader_.get(), salvage));
            const bool broken = c.kind == ChunkProblemKind::CutChunk ||
                                c.kind == ChunkProblemKind::InvalidChunk;
            EXPECT_EQ(reader().loadLog(true), salvage || !broken);
            const ChunkProblem where = loadBreak(reader_.get());
            EXPECT_EQ(where.kind, c.kind);
            if (c.kind != ChunkProblemKind::None) {
                EXPECT_EQ(where.chunkIndex, 2u);
                EXPECT_EQ(where.byteOffset, log.bytes().size() - c.tail.size());
                EXPECT_EQ(where.chunksBefore, 2u);
                EXPECT_EQ(where.messagesBefore, 4u);
            }
            // Finished as at a clean end: statistics, the load flag, the init total.
            const bool finished = salvage || !broken;
            EXPECT_EQ(reader().executeStats.average.size(), finished ? 1u : 0u);
            EXPECT_EQ(reader().loadFlag, finished);
            EXPECT_EQ(reader().initDuration, finished ? 7u : 0u);
        }
    }
}

// --- dispatch ---

TEST_F(LogLoaderTest, UnknownMethodTypesAreLoggedAndSkipped) {
    ASSERT_TRUE(load(oneChunk({MessageSpec(0).graph("g"), MessageSpec(18).graph("g"),
                               MessageSpec(255).graph("g"), execute("g", 0, 10)})));
    EXPECT_EQ(capture_.count("Unknown method type."), 3u);
    EXPECT_TRUE(capture_.contains("Unknown method type.", 1));
    EXPECT_EQ(reader().executions.size(), 1u);
}

TEST_F(LogLoaderTest, ReadNextMessageReturnsTheHandlersResult) {
    ChunkSpec chunk;
    chunk.message(execute("g", 0, 10))
        .message(MessageSpec(kExecute).times(0, 10))  // no graph name
        .message(execute("g", 0, 10).visible(3))
        .message(MessageSpec(42));
    VekProfileLogReader reader(dir_.file("unused"), static_cast<VisibilityLevel>(3));
    auto buffer = std::make_shared<ChunkBuffer>(buildChunk(chunk));  // outlives the reads
    ASSERT_TRUE(reader.messageStream.init(buffer));
    EXPECT_TRUE(reader.readNextMessage());
    EXPECT_FALSE(reader.readNextMessage());
    EXPECT_FALSE(reader.readNextMessage());
    EXPECT_FALSE(reader.readNextMessage());
    EXPECT_FALSE(reader.reachedEof);
    EXPECT_FALSE(reader.readNextMessage());
    EXPECT_TRUE(reader.reachedEof);
}

TEST_F(LogLoaderTest, VisibilityAtOrAboveTheLevelIsSkipped) {
    ASSERT_TRUE(load(oneChunk({execute("g", 0, 1).visible(2), execute("g", 0, 2).visible(3),
                               execute("g", 0, 3).visible(4), execute("g", 0, 4).visible(-1),
                               MessageSpec(kNetRun).times(0, 9).visible(3),
                               MessageSpec(kApplyBinarySection).graph("g").visible(3),
                               MessageSpec(kUpdateBinarySection).visible(3),
                               MessageSpec(kContextGetBinary).visible(3)}),
                     3));
    ASSERT_EQ(reader().executions.size(), 1u);
    const auto& samples = reader().executions[0].samples;
    ASSERT_EQ(samples.size(), 2u);
    EXPECT_EQ(samples[0].netRunUs, 1u);
    EXPECT_EQ(samples[1].netRunUs, 4u);
    EXPECT_FALSE(reader().hasNetRun);
    EXPECT_FALSE(reader().hasApplyBinarySections);
    EXPECT_TRUE(reader().applyBinarySections.empty());
    EXPECT_FALSE(reader().hasUpdateBinarySection);
    EXPECT_FALSE(reader().hasContextBinaryCalls);
}

// --- per-graph calls ---

TEST_F(LogLoaderTest, ExecutionsAreGroupedByGraphInFirstSeenOrder) {
    ASSERT_TRUE(load(oneChunk({execute("g1", 100, 110), execute("g2", 200, 230),
                               execute("g1", 300, 340), execute("G1", 400, 401),
                               MessageSpec(kExecute).times(0, 5), execute("g3", 500, 400)})));
    EXPECT_EQ(graphNames(reader().executions),
              (std::vector<std::string>{"g1", "g2", "G1", "g3"}));
    const auto& g1 = reader().executions[0].samples;
    ASSERT_EQ(g1.size(), 2u);
    EXPECT_EQ(g1[0].netRunUs, 10u);
    EXPECT_EQ(g1[0].auxValue, 100u);
    EXPECT_EQ(g1[1].netRunUs, 40u);
    EXPECT_EQ(g1[1].auxValue, 300u);
    EXPECT_EQ(reader().executions[3].samples[0].netRunUs, 0u);  // end before start
    EXPECT_FALSE(reader().hostRoundTrip);
}

TEST_F(LogLoaderTest, GroupingSurvivesAListChangedOutsideTheLoader) {
    ASSERT_TRUE(load(oneChunk({execute("a", 0, 1), execute("b", 0, 2)})));
    std::swap(reader().executions[0], reader().executions[1]);
    reader().executions.push_back(GraphSamples{"c", {}});
    ASSERT_TRUE(reader().loadLog(false));  // the same log once more
    EXPECT_EQ(graphNames(reader().executions), (std::vector<std::string>{"b", "a", "c"}));
    EXPECT_EQ(reader().executions[0].samples.size(), 2u);
    EXPECT_EQ(reader().executions[1].samples.size(), 2u);
}

TEST_F(LogLoaderTest, RoundTripExecutionsSetTheFlagEvenWhenHidden) {
    ASSERT_TRUE(load(oneChunk({MessageSpec(kExecuteRoundTrip).graph("g").times(0, 7).visible(5)}),
                     5));
    EXPECT_TRUE(reader().hostRoundTrip);
    EXPECT_TRUE(reader().executions.empty());

    ASSERT_TRUE(load(oneChunk({execute("g", 0, 1),
                               MessageSpec(kExecuteRoundTrip).graph("g").times(0, 7)})));
    EXPECT_TRUE(reader().hostRoundTrip);
    ASSERT_EQ(reader().executions.size(), 1u);
    EXPECT_EQ(reader().executions[0].samples.size(), 2u);
}

TEST_F(LogLoaderTest, ApplyAndFinalizeAfterUpdatesCallsAreGroupedWithTheirEvents) {
    const auto events = std::vector<EventSpec>{EventSpec::u64("init", 1, 1, 100),
                                               EventSpec::u64("work", 2)};
    ASSERT_TRUE(load(oneChunk({
        MessageSpec(kApplyBinarySection).graph("x").times(0, 3).withEvents(events),
        MessageSpec(kApplyBinarySection2).graph("x").times(0, 4),
        MessageSpec(kApplyBinarySection2).graph("y").times(0, 5),
        MessageSpec(kFinalizeAfterTensorUpdates).times(0, 5),  // no graph name
    })));
    EXPECT_TRUE(reader().hasApplyBinarySections);
    EXPECT_EQ(graphNames(reader().applyBinarySections), (std::vector<std::string>{"x", "y"}));
    // These keep every event; identifier 100 is not taken out here.
    EXPECT_EQ(eventNames(reader().applyBinarySections[0].samples[0].events),
              (std::vector<std::string>{"init", "work"}));
    EXPECT_FALSE(reader().hasInitEvents);
    EXPECT_FALSE(reader().hasFinalizeAfterUpdates);
    EXPECT_TRUE(reader().finalizeAfterUpdates.empty());

    ASSERT_TRUE(load(oneChunk({MessageSpec(kFinalizeAfterTensorUpdates).graph("z").times(0, 6)})));
    EXPECT_TRUE(reader().hasFinalizeAfterUpdates);
    ASSERT_EQ(reader().finalizeAfterUpdates.size(), 1u);
    EXPECT_EQ(reader().finalizeAfterUpdates[0].samples[0].netRunUs, 6u);
}

// --- the event split ---

TEST_F(LogLoaderTest, ExecutionTakesOutInitEventsAndALaterOneEmptiesThem) {
    ASSERT_TRUE(load(oneChunk({
        execute("g", 0, 1).withEvents({EventSpec::u64("a", 1), EventSpec::u64("load", 2, 1, 100),
                                       EventSpec::u64("b", 3)}),
        execute("g", 0, 2).withEvents({EventSpec::u64("c", 4)}),
    })));
    const auto& samples = reader().executions[0].samples;
    EXPECT_EQ(eventNames(samples[0].events), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(eventNames(samples[1].events), (std::vector<std::string>{"c"}));
    EXPECT_TRUE(reader().hasInitEvents);
    EXPECT_TRUE(reader().initEvents.empty());
}

TEST_F(LogLoaderTest, FinalisationWithOnlyInitEventsHasNoFinalizeEvents) {
    ASSERT_TRUE(load(oneChunk({
        execute("g", 0, 1).withEvents({EventSpec::u64("a", 1)}),
        MessageSpec(kFinalize).graph("g").withEvents({EventSpec::u64("load", 7, 1, 100)}),
    })));
    EXPECT_TRUE(reader().hasInitEvents);
    EXPECT_EQ(eventNames(reader().initEvents), (std::vector<std::string>{"load"}));
    EXPECT_FALSE(reader().hasFinalizeEvents);
}

TEST_F(LogLoaderTest, FinalisationsKeepOneEntryPerGraph) {
    ASSERT_TRUE(load(oneChunk({
        MessageSpec(kFinalize).graph("g").times(10, 20).withEvents(
            {EventSpec::u64("load", 1, 1, 100)}),
        MessageSpec(kFinalize2).graph("h").times(30, 35),
        MessageSpec(kFinalize2).graph("g").times(40, 43).withEvents({EventSpec::u64("f", 2)}),
        MessageSpec(kFinalize).times(0, 100),  // no graph name
    })));
    ASSERT_EQ(reader().finalizes.size(), 2u);
    const NamedSample& g = reader().finalizes[0];
    EXPECT_EQ(g.graphName, "g");
    EXPECT_EQ(g.netRunUs, 3u);
    EXPECT_EQ(g.auxValue, 40u);
    EXPECT_EQ(eventNames(g.events), (std::vector<std::string>{"f"}));
    EXPECT_EQ(reader().finalizes[1].graphName, "h");
    EXPECT_TRUE(reader().hasFinalize);
    EXPECT_TRUE(reader().hasFinalizeEvents);
    EXPECT_TRUE(reader().initEvents.empty());  // replaced by the last call's none
}

TEST_F(LogLoaderTest, FinalizeEventsAreReplacedOnlyOnceAnyFinalisationHadSome) {
    ASSERT_TRUE(load(oneChunk({
        MessageSpec(kFinalize2).graph("g").withEvents({EventSpec::u64("load", 1, 1, 100)}),
    })));
    EXPECT_FALSE(reader().hasFinalizeEvents);
    EXPECT_FALSE(reader().hasFinalize);  // type 9 does not set it
    EXPECT_TRUE(reader().finalizes[0].events.empty());

    ASSERT_TRUE(load(oneChunk({
        MessageSpec(kFinalize).graph("g").withEvents({EventSpec::u64("x", 1)}),
        MessageSpec(kFinalize).graph("g"),
    })));
    EXPECT_TRUE(reader().hasFinalizeEvents);
    EXPECT_TRUE(reader().finalizes[0].events.empty());
}

// --- single, keyed and latest-only calls ---

TEST_F(LogLoaderTest, SingleCallsOverwriteTheirSlot) {
    const std::vector<EventSpec> one = {EventSpec::u64("one", 1)};
    const std::vector<EventSpec> two = {EventSpec::u64("two", 2), EventSpec::u64("three", 3)};
    ASSERT_TRUE(load(oneChunk({
        MessageSpec(kNetRun).times(1, 11).withEvents(one),
        MessageSpec(kNetRun).times(2, 22).withEvents(two),
        MessageSpec(kDeinit).times(3, 33).withEvents(one),
        MessageSpec(kLibLoad).times(4, 44).withEvents(two),
        MessageSpec(kContextCreate).times(5, 55).withEvents(one),
        MessageSpec(kCompose).times(6, 66).withEvents(one),
        MessageSpec(kBinaryInit).times(7, 77).withEvents(two),
    })));
    const VekProfileLogReader& r = reader();
    EXPECT_TRUE(r.hasNetRun);
    EXPECT_EQ(r.netRunTimestamp, 2u);
    EXPECT_EQ(r.netRunDuration, 20u);
    EXPECT_EQ(eventNames(r.netRunEvents), (std::vector<std::string>{"two", "three"}));
    EXPECT_EQ(r.deinitTimestamp, 3u);
    EXPECT_EQ(r.deinitDuration, 30u);
    EXPECT_EQ(eventNames(r.deinitEvents), (std::vector<std::string>{"one"}));
    EXPECT_TRUE(r.hasLibLoad);
    EXPECT_EQ(r.libLoadDuration, 40u);
    EXPECT_EQ(r.libLoadEvents.size(), 2u);
    EXPECT_EQ(r.contextCreateTimestamp, 5u);
    EXPECT_EQ(r.contextCreateDuration, 50u);
    EXPECT_EQ(r.composeTimestamp, 6u);
    EXPECT_EQ(r.composeDuration, 60u);
    EXPECT_TRUE(r.hasBinaryInit);
    EXPECT_EQ(r.binaryInitTimestamp, 7u);
    EXPECT_EQ(r.binaryInitDuration, 70u);
    EXPECT_EQ(r.binaryInitEvents.size(), 2u);
    // Context creation and composition keep no events, so nothing is interned
    // or split from them.
    EXPECT_TRUE(r.initEvents.empty());
}

TEST_F(LogLoaderTest, UpdateBinarySectionKeepsOnlyTheLatestCall) {
    ASSERT_TRUE(load(oneChunk({
        MessageSpec(kUpdateBinarySection).graph("a").times(0, 5).withEvents(
            {EventSpec::u64("old", 1)}),
        MessageSpec(kUpdateBinarySection).graph("b").times(10, 17).withEvents(
            {EventSpec::u64("new", 2)}),
    })));
    EXPECT_TRUE(reader().hasUpdateBinarySection);
    ASSERT_EQ(reader().updateBinarySections.size(), 1u);
    const NamedSample& call = reader().updateBinarySections[0];
    EXPECT_EQ(call.graphName, "");
    EXPECT_EQ(call.netRunUs, 7u);
    EXPECT_EQ(call.auxValue, 10u);
    EXPECT_EQ(eventNames(call.events), (std::vector<std::string>{"new"}));
}

TEST_F(LogLoaderTest, ContextCallsAreKeyedByTheirLabels) {
    const std::vector<EventSpec> events = {EventSpec::u64("ignored", 1)};
    ASSERT_TRUE(load(oneChunk({
        MessageSpec(kContextGetBinary).times(0, 4).withEvents(events),
        MessageSpec(kContextGetBinarySize).times(10, 12),
        MessageSpec(kContextGetBinary).times(20, 29).withEvents(events),
        MessageSpec(kContextGetBinarySectionSize).times(30, 31).withEvents(events),
        MessageSpec(kContextGetBinarySectionSize).times(40, 43),
    })));
    const VekProfileLogReader& r = reader();
    EXPECT_TRUE(r.hasContextBinaryCalls);
    EXPECT_EQ(r.contextBinaryCallOrder,
              (std::vector<std::string>{"CONTEXT GET BINARY", "CONTEXT GET BINARY SIZE"}));
    ASSERT_EQ(r.contextBinaryCalls.size(), 2u);
    const ExecutionSample& binary = r.contextBinaryCalls.at("CONTEXT GET BINARY");
    EXPECT_EQ(binary.netRunUs, 9u);
    EXPECT_EQ(binary.auxValue, 20u);
    EXPECT_TRUE(binary.events.empty());
    EXPECT_EQ(r.contextBinaryCalls.at("CONTEXT GET BINARY SIZE").netRunUs, 2u);
    EXPECT_TRUE(r.hasContextSectionCalls);
    ASSERT_EQ(r.contextSectionCalls.size(), 1u);
    const auto& sections = r.contextSectionCalls.at("CONTEXT GET BINARY SECTION SIZE");
    ASSERT_EQ(sections.size(), 2u);
    EXPECT_EQ(sections[0].netRunUs, 1u);
    EXPECT_EQ(sections[1].auxValue, 40u);
    EXPECT_TRUE(sections[0].events.empty());
    EXPECT_TRUE(r.internedStrings.empty());
}

// --- the initialisation total ---

TEST_F(LogLoaderTest, BinaryInitAloneMakesUpTheInitTotal) {
    ASSERT_TRUE(load(oneChunk({
        MessageSpec(kContextCreate).times(100, 105),
        MessageSpec(kFinalize).graph("g").times(110, 120),
        MessageSpec(kBinaryInit).times(500, 530),
    })));
    EXPECT_EQ(reader().initTimestamp, 500u);
    EXPECT_EQ(reader().initDuration, 30u);
}

TEST_F(LogLoaderTest, FinalizeInitTotalAddsCreateComposeAndEveryFinalisation) {
    ASSERT_TRUE(load(oneChunk({
        MessageSpec(kContextCreate).times(100, 105),
        MessageSpec(kCompose).times(200, 207),
        MessageSpec(kFinalize).graph("g1").times(300, 311),
        MessageSpec(kFinalize).graph("g1").times(400, 413),  // replaces g1's 11
        MessageSpec(kFinalize2).graph("g2").times(500, 517),
    })));
    EXPECT_EQ(reader().initTimestamp, 100u);
    EXPECT_EQ(reader().initDuration, 5u + 7u + 13u + 17u);
}

TEST_F(LogLoaderTest, NoInitTotalWithoutBinaryInitOrTypeTwoFinalisation) {
    ASSERT_TRUE(load(oneChunk({
        MessageSpec(kContextCreate).times(100, 105),
        MessageSpec(kFinalize2).graph("g").times(300, 311),
    })));
    EXPECT_EQ(reader().initTimestamp, 0u);
    EXPECT_EQ(reader().initDuration, 0u);
}

// --- event values ---

TEST_F(LogLoaderTest, StringValuesOutliveTheChunkBuffer) {
    ASSERT_TRUE(load(oneChunk({execute("g", 0, 1).withEvents(
        {EventSpec::text("outer", "first text")
             .withChildren({EventSpec::text("inner", std::string(300, 'x'))})})})));
    const ProfileEvent& outer = reader().executions[0].samples[0].events.at(0);
    ASSERT_EQ(outer.value.dataType, kDataTypeString);
    EXPECT_STREQ(reinterpret_cast<const char*>(static_cast<uintptr_t>(outer.value.payload)),
                 "first text");
    const ProfileEvent& inner = outer.children.at(0);
    EXPECT_EQ(reinterpret_cast<const char*>(static_cast<uintptr_t>(inner.value.payload)),
              std::string(300, 'x'));
    EXPECT_EQ(reader().internedStrings.size(), 2u);
}

// --- event conversion on its own ---

class EventConversionTest : public ::testing::Test {
protected:
    // The converted events of a one-message chunk built from `events`.
    std::vector<ProfileEvent> convert(const std::vector<EventSpec>& events) {
        ChunkSpec chunk;
        chunk.message(MessageSpec(kExecute).withEvents(events));
        buffer_ = buildChunk(chunk);
        const fb::LogMessage* message = fb::GetLogChunk(buffer_.data())->messages()->Get(0);
        std::vector<ProfileEvent> out;
        convertEvents(message->events(), store_, strings_, out);
        return out;
    }

    template <typename T>
    static T lowBytes(const ProfileEvent& event) {
        T value;
        std::memcpy(&value, &event.value.payload, sizeof value);
        return value;
    }

    std::vector<uint8_t> buffer_;
    EventStore store_;
    std::list<std::string> strings_;
};

TEST_F(EventConversionTest, DecodesEveryValueType) {
    EventSpec bytes = EventSpec::object("blob", {1, 2, 3}, "blob.bin");
    EventSpec noBytes;
    noBytes.name = "nothing";
    noBytes.valueType = kValueBytes;
    EventSpec unknown = EventSpec::u64("seven", 99);
    unknown.valueType = 7;
    EventSpec unset = EventSpec::u64("zero", 99);
    unset.valueType = 0;
    EventSpec noText;
    noText.name = "empty";
    noText.valueType = kValueString;
    const auto events = convert({EventSpec::i64("i", -5), EventSpec::u64("u", 1ull << 40),
                                 EventSpec::f32("f", 1.5f), bytes, noBytes,
                                 EventSpec::f64("d", -2.25), EventSpec::text("s", "hi"),
                                 unknown, unset, noText});
    ASSERT_EQ(events.size(), 10u);
    EXPECT_EQ(events[0].value.dataType, 0x0064u);
    EXPECT_EQ(events[0].value.payload, static_cast<uint64_t>(int64_t{-5}));
    EXPECT_EQ(events[1].value.dataType, 0x0164u);
    EXPECT_EQ(events[1].value.payload, 1ull << 40);
    EXPECT_EQ(events[2].value.dataType, 0x0232u);
    EXPECT_EQ(lowBytes<float>(events[2]), 1.5f);
    EXPECT_EQ(events[2].value.payload >> 32, 0u);
    EXPECT_EQ(events[3].value.dataType, 0u);
    EXPECT_EQ(events[3].value.payload, 0u);
    EXPECT_EQ(events[3].bytes, (std::vector<uint8_t>{1, 2, 3}));
    EXPECT_EQ(events[3].detail, "blob.bin");
    EXPECT_EQ(events[3].unit, 5u);
    EXPECT_TRUE(events[4].bytes.empty());
    EXPECT_EQ(events[5].value.dataType, 0x0264u);
    EXPECT_EQ(lowBytes<double>(events[5]), -2.25);
    EXPECT_EQ(events[6].value.dataType, 0x0608u);
    EXPECT_STREQ(lowBytes<const char*>(events[6]), "hi");
    for (size_t i : {7u, 8u}) {
        EXPECT_EQ(events[i].value.dataType, 0u) << i;
        EXPECT_EQ(events[i].value.payload, 0u) << i;
    }
    EXPECT_EQ(events[9].value.dataType, 0x0608u);
    EXPECT_STREQ(lowBytes<const char*>(events[9]), "");
    EXPECT_EQ(strings_, (std::list<std::string>{"hi", ""}));
}

TEST_F(EventConversionTest, CopiesTheFieldsAndTheTreeInOrder) {
    EventSpec nameless;
    nameless.identifier = 404;
    nameless.unit = 3;
    nameless.detail = "d";
    nameless.timestamp = 123456789012ull;
    nameless.withChildren({EventSpec::u64("c1", 1).withChildren({EventSpec::u64("gc", 3)}),
                           EventSpec::u64("c2", 2)});
    const auto events = convert({nameless, EventSpec::u64("plain", 5)});
    ASSERT_EQ(events.size(), 2u);
    const ProfileEvent& e = events[0];
    EXPECT_EQ(e.name, "null");
    EXPECT_EQ(e.identifier, 404u);
    EXPECT_EQ(e.unit, 3u);
    EXPECT_EQ(e.detail, "d");
    EXPECT_EQ(e.timestamp, 123456789012ull);
    EXPECT_EQ(e.sampleCount, 1u);
    EXPECT_EQ(eventNames(e.children), (std::vector<std::string>{"c1", "c2"}));
    EXPECT_EQ(eventNames(e.children[0].children), (std::vector<std::string>{"gc"}));
    EXPECT_EQ(e.children[0].children[0].sampleCount, 1u);
    EXPECT_EQ(events[1].detail, "");
    EXPECT_TRUE(events[1].children.empty());

    // A single event converts the same way on its own.
    const fb::LogEvent* first =
        fb::GetLogChunk(buffer_.data())->messages()->Get(0)->events()->Get(0);
    const ProfileEvent alone = convertEvent(*first, store_, strings_);
    EXPECT_EQ(alone.name, "null");
    EXPECT_EQ(alone.children.size(), 2u);
}

}  // namespace
}  // namespace profiling
}  // namespace vek
