// The loader: how breaks in the log end a load, where each call lands in the
// model, how events are split and converted, and the header lines.
#include <sys/stat.h>
#include <time.h>

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "VekVersion.h"
#include "reader/VekProfileLogReader.h"
#include "support/LogCapture.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using namespace testlog;
using Names = std::vector<std::string>;

const char* const kCorrupt = "Corrupted flatbuffer binary stream";
const char* const kReaderEof = "profiling::VekProfileLogReader reached EOF!";

MessageSpec call(uint8_t type, uint64_t start = 0, uint64_t end = 0, const char* graph = nullptr) {
    MessageSpec message = MessageSpec(type).times(start, end);
    if (graph != nullptr) message.graph(graph);
    return message;
}
MessageSpec execute(const char* graph, uint64_t start, uint64_t end) {
    return call(kExecute, start, end, graph);
}

Names graphNames(const std::vector<GraphSamples>& list) {
    Names names;
    for (const GraphSamples& graph : list) names.push_back(graph.graphName);
    return names;
}

Names eventNames(EventSpan events) {
    Names names;
    for (const ProfileEvent& event : events) names.push_back(event.name);
    return names;
}

class LogLoaderTest : public ::testing::Test {
protected:
    bool load(const LogWriter& log, int8_t level = 10, bool flag = false, bool salvage = false) {
        log.writeTo(path_);
        reader_ = std::make_unique<VekProfileLogReader>(path_, VisibilityLevel(level));
        EXPECT_TRUE(setSalvageLoad(reader_.get(), salvage));
        return reader_->loadLog(flag);
    }

    // Loads one chunk of the given messages.
    VekProfileLogReader& loaded(std::vector<MessageSpec> messages, int8_t level = 10) {
        LogWriter log;
        ChunkSpec& chunk = log.chunk();
        for (MessageSpec& message : messages) chunk.message(std::move(message));
        EXPECT_TRUE(load(log, level));
        return *reader_;
    }

    TempDir dir_;
    const std::string path_ = dir_.file("profile.bin");
    std::unique_ptr<VekProfileLogReader> reader_;
    LogCapture capture_;
};

// --- framing ---

TEST_F(LogLoaderTest, MissingFileOrDirectoryIsRefusedAndAnEmptyFileLoads) {
    for (const std::string& path : {dir_.file("absent.bin"), dir_.path()}) {
        VekProfileLogReader reader(path, VisibilityLevel(10));
        EXPECT_FALSE(reader.loadLog(true));
        EXPECT_TRUE(capture_.contains("Invalid or nonexistent file: " + path, 1));
        EXPECT_FALSE(reader.loadFlag);
    }
    ASSERT_TRUE(load(LogWriter{}, 10, true));
    EXPECT_TRUE(reader_->loadFlag);
    EXPECT_FALSE(reader_->headerSaved);
    EXPECT_TRUE(reader_->executions.empty() && reader_->finalizes.empty());
    EXPECT_EQ(capture_.count(kCorrupt), 0u);
}

// Where the log breaks, a plain load is refused (what came before stays, but
// nothing is derived from it) and a salvage load finishes as at the end of
// the file; either way the reader tells where the log broke.
TEST_F(LogLoaderTest, BreaksRefuseAPlainLoadAndEndASalvageLoad) {
    using Kind = ChunkProblemKind;
    std::vector<uint8_t> cut = lengthPrefixed(buildChunk(ChunkSpec{}.message(execute("g", 0, 9))));
    cut.pop_back();
    MessageSpec broken = execute("g", 0, 5);
    broken.omitTiming = true;
    LogWriter brokenThenGood;  // verified as a whole: its good first message is not loaded
    brokenThenGood.chunk().message(execute("g", 0, 30)).message(broken);
    brokenThenGood.chunk().message(execute("g", 0, 40));
    const struct {
        const char* what;
        std::vector<uint8_t> tail;
        Kind kind;
    } cases[] = {
        {"length beyond the file", {0xf0, 0xff, 0xff, 0xff, 1, 2, 3}, Kind::CutChunk},
        {"body one byte short", cut, Kind::CutChunk},
        {"zero length", {0, 0, 0, 0}, Kind::InvalidChunk},
        {"too short to verify", {5, 0, 0, 0, 1, 2, 3, 4, 5}, Kind::InvalidChunk},
        {"zeroed chunk", lengthPrefixed(std::vector<uint8_t>(16, 0)), Kind::InvalidChunk},
        {"a message without its timing", brokenThenGood.bytes(), Kind::InvalidChunk},
        {"one byte of a length field", {0x40}, Kind::TrailingBytes},
        {"three bytes of a length field", {0x40, 0x40, 0x40}, Kind::TrailingBytes},
        {"clean end", {}, Kind::None},
    };
    for (const auto& c : cases) {
        for (const bool salvage : {false, true}) {
            SCOPED_TRACE(std::string(c.what) + (salvage ? ", salvage" : ""));
            capture_.clear();
            LogWriter log;
            log.chunk().message(call(kContextCreate, 1, 2)).message(call(kFinalize, 3, 9, "g"));
            log.chunk().message(execute("g", 0, 10)).message(execute("g", 0, 20));
            const size_t breakAt = log.bytes().size();
            log.rawBytes(c.tail);
            const bool refused = c.kind == Kind::CutChunk || c.kind == Kind::InvalidChunk;
            const bool finished = salvage || !refused;
            EXPECT_EQ(load(log, 10, true, salvage), finished);
            EXPECT_EQ(capture_.count(kCorrupt), refused ? 1u : 0u);
            const ChunkProblem where = loadBreak(reader_.get());
            EXPECT_EQ(where.kind, c.kind);
            if (c.kind != Kind::None) {
                EXPECT_EQ(where.chunkIndex, 2u);
                EXPECT_EQ(where.byteOffset, breakAt);
                EXPECT_EQ(where.chunksBefore, 2u);
                EXPECT_EQ(where.messagesBefore, 4u);
            }
            EXPECT_EQ(reader_->finalizes.size(), 1u);
            ASSERT_EQ(reader_->executions.size(), 1u);
            EXPECT_EQ(reader_->executions[0].samples.size(), 2u);
            EXPECT_EQ(reader_->executeStats.average.size(), finished ? 1u : 0u);
            EXPECT_EQ(reader_->loadFlag, finished);
            EXPECT_EQ(reader_->initDuration, finished ? 7u : 0u);
        }
    }
}

TEST_F(LogLoaderTest, ReadsEveryChunkPastUnknownCallsAndLogsTheEndOfEach) {
    LogWriter log;
    log.chunk().message(execute("g", 0, 10));
    log.chunk();  // no message vector at all
    log.chunk().message(MessageSpec(0)).message(MessageSpec(18)).message(MessageSpec(255))
        .message(execute("g", 0, 20)).message(execute("h", 0, 30));
    ASSERT_TRUE(load(log));
    EXPECT_EQ(graphNames(reader_->executions), (Names{"g", "h"}));
    EXPECT_EQ(reader_->executions[0].samples.size(), 2u);
    EXPECT_EQ(capture_.count("Unknown method type."), 3u);
    EXPECT_TRUE(capture_.contains("Unknown method type.", 1));
    EXPECT_EQ(capture_.count(kReaderEof), 3u);
    EXPECT_TRUE(capture_.contains(kReaderEof, 5));
    // The stream is left empty, not pointing into a released chunk.
    capture_.clear();
    EXPECT_FALSE(reader_->readNextMessage());
    EXPECT_TRUE(reader_->reachedEof);
    EXPECT_EQ(capture_.count(kReaderEof), 1u);
}

TEST_F(LogLoaderTest, ReadsALogFromAPipe) {
    const std::string fifo = dir_.file("pipe");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    LogWriter log;
    log.chunk().message(execute("g", 0, 10));
    log.rawBytes({0xf0, 0xff, 0xff, 0x7f, 1, 2, 3});  // a length the pipe never fills
    const std::vector<uint8_t> bytes = log.bytes();
    std::thread writer([&] {
        std::ofstream(fifo, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    });
    VekProfileLogReader reader(fifo, VisibilityLevel(10));
    const bool loaded = reader.loadLog(false);
    writer.join();
    EXPECT_FALSE(loaded);
    EXPECT_EQ(reader.executions.size(), 1u);
    EXPECT_EQ(capture_.count(kCorrupt), 1u);
}

// --- dispatch ---

TEST_F(LogLoaderTest, VisibilityAtOrAboveTheLevelIsSkipped) {
    const VekProfileLogReader& r = loaded(
        {execute("g", 0, 1).visible(2), execute("g", 0, 2).visible(3), execute("g", 0, 3).visible(4),
         execute("g", 0, 4).visible(-1), call(kNetRun, 0, 9).visible(3),
         call(kApplyBinarySection, 0, 0, "g").visible(3), call(kUpdateBinarySection).visible(3),
         call(kContextGetBinary).visible(3)},
        3);
    ASSERT_EQ(r.executions.size(), 1u);
    const auto& samples = r.executions[0].samples;
    ASSERT_EQ(samples.size(), 2u);
    EXPECT_EQ(samples[0].netRunUs, 1u);
    EXPECT_EQ(samples[1].netRunUs, 4u);
    EXPECT_FALSE(r.hasNetRun || r.hasApplyBinarySections || r.hasUpdateBinarySection ||
                 r.hasContextBinaryCalls);
    EXPECT_TRUE(r.applyBinarySections.empty());
}

// --- per-graph calls ---

TEST_F(LogLoaderTest, ExecutionsAreGroupedByGraphInFirstSeenOrder) {
    VekProfileLogReader& r = loaded({execute("g1", 100, 110), execute("g2", 200, 230),
                                     execute("g1", 300, 340), execute("G1", 400, 401),
                                     call(kExecute, 0, 5), execute("g3", 500, 400)});
    EXPECT_EQ(graphNames(r.executions), (Names{"g1", "g2", "G1", "g3"}));
    const auto& g1 = r.executions[0].samples;
    ASSERT_EQ(g1.size(), 2u);
    EXPECT_EQ(g1[0].netRunUs, 10u);
    EXPECT_EQ(g1[0].auxValue, 100u);
    EXPECT_EQ(g1[1].netRunUs, 40u);
    EXPECT_EQ(g1[1].auxValue, 300u);
    EXPECT_EQ(r.executions[3].samples[0].netRunUs, 0u);  // end before start
    EXPECT_FALSE(r.hostRoundTrip);

    // The grouping follows a list changed outside the loader.
    std::swap(r.executions[0], r.executions[1]);
    r.executions.push_back(GraphSamples{"c", {}});
    ASSERT_TRUE(r.loadLog(false));  // the same log once more
    EXPECT_EQ(graphNames(r.executions), (Names{"g2", "g1", "G1", "g3", "c"}));
    EXPECT_EQ(r.executions[0].samples.size(), 2u);
    EXPECT_EQ(r.executions[1].samples.size(), 4u);
}

TEST_F(LogLoaderTest, RoundTripExecutionsSetTheFlagEvenWhenHidden) {
    EXPECT_TRUE(loaded({call(kExecuteRoundTrip, 0, 7, "g").visible(5)}, 5).hostRoundTrip);
    EXPECT_TRUE(reader_->executions.empty());
    const VekProfileLogReader& r = loaded({execute("g", 0, 1), call(kExecuteRoundTrip, 0, 7, "g")});
    EXPECT_TRUE(r.hostRoundTrip);
    ASSERT_EQ(r.executions.size(), 1u);
    EXPECT_EQ(r.executions[0].samples.size(), 2u);
}

TEST_F(LogLoaderTest, ApplyCallsKeepInitEventsAndUnnamedFinalisationsAfterUpdatesAreDropped) {
    const VekProfileLogReader& r = loaded(
        {call(kApplyBinarySection, 0, 3, "x").withEvents({EventSpec::u64("init", 1, 1, 100), EventSpec::u64("w", 2)}),
         call(kApplyBinarySection2, 0, 4, "y"), call(kFinalizeAfterTensorUpdates, 0, 5)});
    EXPECT_EQ(graphNames(r.applyBinarySections), (Names{"x", "y"}));
    EXPECT_EQ(eventNames(r.applyBinarySections[0].samples[0].events), (Names{"init", "w"}));
    EXPECT_FALSE(r.hasInitEvents || r.hasFinalizeAfterUpdates);
    EXPECT_TRUE(r.finalizeAfterUpdates.empty());
}

// --- the event split: identifier 100 marks an init event ---

TEST_F(LogLoaderTest, ExecutionTakesOutInitEventsAndALaterOneEmptiesThem) {
    const VekProfileLogReader& r = loaded({
        execute("g", 0, 1).withEvents(
            {EventSpec::u64("a", 1), EventSpec::u64("load", 2, 1, 100), EventSpec::u64("b", 3)}),
        execute("g", 0, 2).withEvents({EventSpec::u64("c", 4)})});
    EXPECT_EQ(eventNames(r.executions[0].samples[0].events), (Names{"a", "b"}));
    EXPECT_EQ(eventNames(r.executions[0].samples[1].events), (Names{"c"}));
    EXPECT_TRUE(r.hasInitEvents);
    EXPECT_TRUE(r.initEvents.empty());

    loaded({execute("g", 0, 1).withEvents({EventSpec::u64("a", 1)}),
            call(kFinalize, 0, 0, "g").withEvents({EventSpec::u64("load", 7, 1, 100)})});
    EXPECT_TRUE(reader_->hasInitEvents);
    EXPECT_EQ(eventNames(reader_->initEvents), (Names{"load"}));
    EXPECT_FALSE(reader_->hasFinalizeEvents);  // only init events
}

TEST_F(LogLoaderTest, FinalisationsKeepOneEntryPerGraph) {
    const VekProfileLogReader& r = loaded({
        call(kFinalize, 10, 20, "g").withEvents({EventSpec::u64("load", 1, 1, 100)}),
        call(kFinalize2, 30, 35, "h"),
        call(kFinalize2, 40, 43, "g").withEvents({EventSpec::u64("f", 2)}),
        call(kFinalize, 0, 100)});  // no graph name
    ASSERT_EQ(r.finalizes.size(), 2u);
    const NamedSample& g = r.finalizes[0];
    EXPECT_EQ(g.graphName, "g");
    EXPECT_EQ(g.netRunUs, 3u);
    EXPECT_EQ(g.auxValue, 40u);
    EXPECT_EQ(eventNames(g.events), (Names{"f"}));
    EXPECT_EQ(r.finalizes[1].graphName, "h");
    EXPECT_TRUE(r.hasFinalize && r.hasFinalizeEvents);
    EXPECT_TRUE(r.initEvents.empty());  // replaced by the last call's none
}

TEST_F(LogLoaderTest, FinalizeEventsAreReplacedOnlyOnceAnyFinalisationHadSome) {
    loaded({call(kFinalize2, 0, 0, "g").withEvents({EventSpec::u64("load", 1, 1, 100)})});
    EXPECT_FALSE(reader_->hasFinalizeEvents);
    EXPECT_FALSE(reader_->hasFinalize);  // type 9 does not set it
    EXPECT_TRUE(reader_->finalizes[0].events.empty());

    loaded({call(kFinalize, 0, 0, "g").withEvents({EventSpec::u64("x", 1)}), call(kFinalize, 0, 0, "g")});
    EXPECT_TRUE(reader_->hasFinalizeEvents);
    EXPECT_TRUE(reader_->finalizes[0].events.empty());
}

// --- single, keyed and latest-only calls ---

TEST_F(LogLoaderTest, SingleCallsOverwriteTheirSlot) {
    const std::vector<EventSpec> one = {EventSpec::u64("one", 1)};
    const std::vector<EventSpec> two = {EventSpec::u64("two", 2), EventSpec::u64("three", 3)};
    const VekProfileLogReader& r = loaded({
        call(kNetRun, 1, 11).withEvents(one), call(kNetRun, 2, 22).withEvents(two),
        call(kDeinit, 3, 33).withEvents(one), call(kLibLoad, 4, 44).withEvents(two),
        call(kContextCreate, 5, 55).withEvents(one), call(kCompose, 6, 66).withEvents(one),
        call(kBinaryInit, 7, 77).withEvents(two)});
    EXPECT_TRUE(r.hasNetRun && r.hasLibLoad && r.hasBinaryInit);
    const uint64_t slots[][2] = {{r.netRunTimestamp, r.netRunDuration},
                                 {r.deinitTimestamp, r.deinitDuration},
                                 {r.libLoadTimestamp, r.libLoadDuration},
                                 {r.contextCreateTimestamp, r.contextCreateDuration},
                                 {r.composeTimestamp, r.composeDuration},
                                 {r.binaryInitTimestamp, r.binaryInitDuration}};
    for (uint64_t i = 0; i < 6; ++i) {
        EXPECT_EQ(slots[i][0], i + 2) << i;
        EXPECT_EQ(slots[i][1], 10 * (i + 2)) << i;
    }
    EXPECT_EQ(eventNames(r.netRunEvents), (Names{"two", "three"}));
    EXPECT_EQ(eventNames(r.deinitEvents), (Names{"one"}));
    EXPECT_EQ(r.libLoadEvents.size(), 2u);
    EXPECT_EQ(r.binaryInitEvents.size(), 2u);
    // Context creation and composition keep no events: nothing is split from them.
    EXPECT_TRUE(r.initEvents.empty());
}

// The init total: the binary init alone; else, once a type-2 finalisation
// came, context creation, composition and every graph's finalisation.
TEST_F(LogLoaderTest, InitTotal) {
    const struct {
        std::vector<MessageSpec> calls;
        uint64_t timestamp, duration;
    } cases[] = {
        {{call(kContextCreate, 100, 105), call(kFinalize, 110, 120, "g"), call(kBinaryInit, 500, 530)},
         500, 30},
        {{call(kContextCreate, 100, 105), call(kCompose, 200, 207), call(kFinalize, 300, 311, "g1"),
          call(kFinalize, 400, 413, "g1"),  // replaces g1's 11
          call(kFinalize2, 500, 517, "g2")},
         100, 5 + 7 + 13 + 17},
        {{call(kContextCreate, 100, 105), call(kFinalize2, 300, 311, "g")}, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.duration);
        const VekProfileLogReader& r = loaded(c.calls);
        EXPECT_EQ(r.initTimestamp, c.timestamp);
        EXPECT_EQ(r.initDuration, c.duration);
    }
}

// --- the header ---

TEST_F(LogLoaderTest, OnlyTheFirstHeaderIsSavedEvenFromTheSecondChunk) {
    LogWriter log;
    log.chunk().message(execute("g", 0, 1));
    log.chunk().header(HeaderSpec{}.tool("second", "1")).message(execute("g", 0, 1));
    log.chunk().header(HeaderSpec{}.tool("third", "1"));
    ASSERT_TRUE(load(log));
    EXPECT_EQ(reader_->toolName, "second");
    EXPECT_EQ(capture_.count("hdr is nullptr"), 1u);
    EXPECT_TRUE(capture_.contains("hdr is nullptr", 5));
    // The loader never asks twice; a later call only says so.
    EXPECT_EQ(capture_.count("Header details have been saved already."), 0u);
    reader_->saveHeader();
    EXPECT_TRUE(capture_.contains("Header details have been saved already.", 5));
    EXPECT_EQ(reader_->toolName, "second");

    // Without any header nothing is printed.
    loaded({execute("g", 0, 1)});
    EXPECT_FALSE(reader_->headerSaved);
    EXPECT_EQ(reader_->printHeader(), "");
    EXPECT_TRUE(capture_.contains("Header details unavailable.", 5));
}

TEST_F(LogLoaderTest, LoraModeNeedsTheExactToolName) {
    const std::string exact = kLoraAdapterUpdaterToolName;
    for (const std::string& name :
         {exact, exact + " ", std::string("ZOLRA-LORA-ADAPTER-BIN-UPDATER"),
          std::string("Zolra-lora-adapter-bin-updater"), exact.substr(0, exact.size() - 1),
          exact + std::string(1, '\0')}) {
        LogWriter log;
        log.chunk().header(HeaderSpec{}.tool(name, "1")).message(execute("g", 0, 1));
        ASSERT_TRUE(load(log));
        EXPECT_EQ(reader_->loraAdapterUpdaterMode, name == exact) << name;
    }
}

// Line `line` of the printed header, or with no text, how many lines it has.
TEST_F(LogLoaderTest, HeaderLines) {
    HeaderSpec nameOnly, versionOnly;
    nameOnly.toolName = "tool";
    versionOnly.toolVersion = "1.0";
    versionOnly.backend = "";
    const struct {
        HeaderSpec header;
        const char* zone;
        size_t line;
        const char* text;
    } cases[] = {
        // Whole seconds of the epoch, in local time.
        {HeaderSpec{}.epoch(999999), "EST5", 1, "Log File Created: Wed Dec 31 19:00:00 1969"},
        {HeaderSpec{}.scale(0.001f), "UTC", 2, "Time Scale: 0.001"},
        {HeaderSpec{}.scale(1234567.0f), "UTC", 2, "Time Scale: 1.23457e+06"},
        {HeaderSpec{}.scale(0.0f), "UTC", 2, "Time Scale: 0"},
        {HeaderSpec{}.epoch(1773151387000000ull).steady(98765432100ull), "UTC", 3,
         "Epoch Timestamp: 1773151387000000 Steady Clock Timestamp: 98765432100"},
        // The tool line needs name and version, the backend line a backend.
        {nameOnly, "UTC", 6, nullptr},
        {versionOnly, "UTC", 6, nullptr},
        // Nothing for a time asctime cannot show.
        {HeaderSpec{}.epoch(UINT64_MAX), "UTC", 0, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text != nullptr ? c.text : std::to_string(c.line) + " lines");
        setenv("TZ", c.zone, 1);
        tzset();
        LogWriter log;
        log.chunk().header(c.header).message(execute("g", 0, 1));
        ASSERT_TRUE(load(log));
        std::vector<std::string> lines;
        std::istringstream in(reader_->printHeader());
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        if (c.text == nullptr) {
            EXPECT_EQ(lines.size(), c.line);
            continue;
        }
        ASSERT_GT(lines.size(), c.line);
        EXPECT_EQ(lines[c.line], c.text);
        EXPECT_EQ(lines[0], "Input Log File Location: " + path_);
        EXPECT_EQ(lines[5], std::string("vek-profile-viewer: ") + VEK_PROFILE_VIEWER_VERSION);
    }
    setenv("TZ", "UTC", 1);
    tzset();
}

// --- event values, as loaded ---

template <typename T>
T lowBytes(const ProfileEvent& event) {
    T value;
    std::memcpy(&value, &event.value.payload, sizeof value);
    return value;
}

TEST_F(LogLoaderTest, CopiesEveryFieldAndValueTypeAndKeepsTextsPastTheChunk) {
    EventSpec nameless;  // with every other field
    nameless.identifier = 404;
    nameless.unit = 3;
    nameless.detail = "d";
    nameless.timestamp = 123456789012ull;
    nameless.withChildren({EventSpec::u64("c1", 1).withChildren({EventSpec::u64("gc", 3)}), EventSpec::u64("c2", 2)});
    auto typed = [](const char* name, int32_t valueType) {
        EventSpec event = EventSpec::u64(name, 99);
        event.valueType = valueType;
        return event;
    };
    const VekProfileLogReader& r = loaded({execute("g", 0, 1).withEvents(
        {EventSpec::i64("i", -5), EventSpec::u64("u", 1ull << 40), EventSpec::f32("f", 1.5f),
         EventSpec::object("blob", {1, 2, 3}, "blob.bin"), typed("no bytes", kValueBytes),
         EventSpec::f64("d", -2.25), EventSpec::text("s", "hi"), typed("seven", 7), typed("zero", 0),
         typed("no text", kValueString),
         EventSpec::text("outer", "x").withChildren({EventSpec::text("inner", std::string(300, 'x'))}),
         nameless})});
    const EventSpan events = r.executions.at(0).samples.at(0).events;
    ASSERT_EQ(events.size(), 12u);
    const uint32_t types[] = {0x0064, 0x0164, 0x0232, 0, 0, 0x0264, 0x0608, 0, 0, 0x0608, 0x0608, 0};
    for (size_t i = 0; i < events.size(); ++i) EXPECT_EQ(events[i].value.dataType, types[i]) << i;
    EXPECT_EQ(events[0].value.payload, static_cast<uint64_t>(int64_t{-5}));
    EXPECT_EQ(events[1].value.payload, 1ull << 40);
    EXPECT_EQ(lowBytes<float>(events[2]), 1.5f);
    EXPECT_EQ(events[2].value.payload >> 32, 0u);
    EXPECT_EQ(events[3].value.payload, 0u);
    EXPECT_EQ(events[3].bytes, (std::vector<uint8_t>{1, 2, 3}));
    EXPECT_EQ(events[3].detail, "blob.bin");
    EXPECT_EQ(events[3].unit, 5u);
    EXPECT_TRUE(events[4].bytes.empty());
    EXPECT_EQ(lowBytes<double>(events[5]), -2.25);
    EXPECT_STREQ(lowBytes<const char*>(events[6]), "hi");
    EXPECT_EQ(events[7].value.payload + events[8].value.payload, 0u);
    EXPECT_STREQ(lowBytes<const char*>(events[9]), "");
    EXPECT_EQ(lowBytes<const char*>(events[10].children.at(0)), std::string(300, 'x'));
    EXPECT_EQ(r.internedStrings.size(), 4u);
    const ProfileEvent& e = events[11];
    EXPECT_EQ(e.name, "null");
    EXPECT_EQ(e.identifier, 404u);
    EXPECT_EQ(e.unit, 3u);
    EXPECT_EQ(e.detail, "d");
    EXPECT_EQ(e.timestamp, 123456789012ull);
    EXPECT_EQ(e.sampleCount, 1u);
    EXPECT_EQ(eventNames(e.children), (Names{"c1", "c2"}));
    EXPECT_EQ(eventNames(e.children[0].children), (Names{"gc"}));
    EXPECT_EQ(e.children[0].children[0].sampleCount, 1u);
    EXPECT_EQ(events[1].detail, "");
    EXPECT_TRUE(events[1].children.empty());
}

}  // namespace
}  // namespace profiling
}  // namespace vek
