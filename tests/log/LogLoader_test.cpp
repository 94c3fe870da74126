// The loader: how breaks end a load, where each call lands in the model, how
// events are split and converted, and the header.
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include "reader/VekProfileLogReader.h"
#include "support/Golden.h"
#include "support/LogCapture.h"
#include "support/LogWriter.h"

namespace vek::profiling {
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
MessageSpec execute(const char* graph, uint64_t start, uint64_t end) { return call(kExecute, start, end, graph); }

template <typename List>
Names graphNames(const List& list) {
    Names names;
    for (const auto& graph : list) names.push_back(graph.graphName);
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

// A directory is refused as a missing file is (see the plug-in test); an empty file loads.
TEST_F(LogLoaderTest, DirectoryIsRefusedAndAnEmptyFileLoads) {
    VekProfileLogReader reader(dir_.path(), VisibilityLevel(10));
    EXPECT_FALSE(reader.loadLog(true));
    EXPECT_FALSE(reader.loadFlag);
    EXPECT_TRUE(capture_.contains("Invalid or nonexistent file: " + dir_.path(), 1));
    ASSERT_TRUE(load(LogWriter{}, 10, true));
    EXPECT_TRUE(reader_->loadFlag && !reader_->headerSaved);
    EXPECT_EQ(capture_.count(kCorrupt), 0u);
}

// At a break a plain load is refused (what came before stays, nothing is
// derived from it), a salvage load finishes; both tell where the log broke.
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
    EXPECT_EQ(capture_.count(kReaderEof), 3u);  // one per chunk
    capture_.clear();  // the stream is left empty, not pointing into a released chunk
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
    EXPECT_FALSE(reader.loadLog(false));
    writer.join();
    EXPECT_EQ(reader.executions.size(), 1u);
    EXPECT_EQ(capture_.count(kCorrupt), 1u);
}

// A hidden round-trip execution still marks the log as one of round trips.
TEST_F(LogLoaderTest, VisibilityAtOrAboveTheLevelIsSkipped) {
    const VekProfileLogReader& r = loaded(
        {execute("g", 0, 1).visible(2), execute("g", 0, 2).visible(3), execute("g", 0, 3).visible(4),
         execute("g", 0, 4).visible(-1), call(kNetRun, 0, 9).visible(3),
         call(kApplyBinarySection, 0, 0, "g").visible(3), call(kUpdateBinarySection).visible(3),
         call(kContextGetBinary).visible(3), call(kExecuteRoundTrip, 0, 7, "g").visible(3)},
        3);
    ASSERT_EQ(r.executions.size(), 1u);
    const auto& samples = r.executions[0].samples;
    ASSERT_EQ(samples.size(), 2u);
    EXPECT_EQ(samples[0].netRunUs, 1u);
    EXPECT_EQ(samples[1].netRunUs, 4u);
    EXPECT_FALSE(r.hasNetRun || r.hasApplyBinarySections || r.hasUpdateBinarySection || r.hasContextBinaryCalls);
    EXPECT_TRUE(r.hostRoundTrip);
}

TEST_F(LogLoaderTest, ExecutionsAreGroupedByGraphInFirstSeenOrder) {
    VekProfileLogReader& r = loaded({execute("g1", 100, 110), execute("g2", 200, 230),
                                     execute("g1", 300, 340), execute("G1", 400, 401),
                                     call(kExecute, 0, 5), execute("g3", 500, 400)});
    EXPECT_EQ(graphNames(r.executions), (Names{"g1", "g2", "G1", "g3"}));
    const auto& g1 = r.executions[0].samples;
    ASSERT_EQ(g1.size(), 2u);
    EXPECT_EQ(g1[1].netRunUs, 40u);
    EXPECT_EQ(g1[1].auxValue, 300u);
    EXPECT_EQ(r.executions[3].samples[0].netRunUs, 0u);  // end before start
    std::swap(r.executions[0], r.executions[1]);  // the grouping follows a list changed outside the loader
    r.executions.push_back(GraphSamples{"c", {}});
    ASSERT_TRUE(r.loadLog(false));  // the same log once more
    EXPECT_EQ(graphNames(r.executions), (Names{"g2", "g1", "G1", "g3", "c"}));
    EXPECT_EQ(r.executions[1].samples.size(), 4u);
}

// Identifier 100 marks an init event: executions and finalisations give
// theirs up (a later execution empties them), apply calls keep theirs.
TEST_F(LogLoaderTest, InitEventsAreSplitFromExecutionsAndFinalisations) {
    const VekProfileLogReader& r = loaded({
        execute("g", 0, 1).withEvents(
            {EventSpec::u64("a", 1), EventSpec::u64("load", 2, 1, 100), EventSpec::u64("b", 3)}),
        execute("g", 0, 2).withEvents({EventSpec::u64("c", 4)}),
        call(kApplyBinarySection, 0, 3, "x").withEvents({EventSpec::u64("init", 1, 1, 100)}),
        call(kFinalizeAfterTensorUpdates, 0, 5)});  // names no graph: dropped
    EXPECT_EQ(eventNames(r.executions[0].samples[0].events), (Names{"a", "b"}));
    EXPECT_EQ(eventNames(r.executions[0].samples[1].events), (Names{"c"}));
    EXPECT_TRUE(r.hasInitEvents && r.initEvents.empty());
    EXPECT_EQ(eventNames(r.applyBinarySections.at(0).samples.at(0).events), (Names{"init"}));
    EXPECT_TRUE(r.finalizeAfterUpdates.empty() && !r.hasFinalizeAfterUpdates);

    loaded({execute("g", 0, 1).withEvents({EventSpec::u64("a", 1)}),
            call(kFinalize, 0, 0, "g").withEvents({EventSpec::u64("load", 7, 1, 100)})});
    EXPECT_EQ(eventNames(reader_->initEvents), (Names{"load"}));
    EXPECT_FALSE(reader_->hasFinalizeEvents);  // only init events
}

// One entry per named graph, replaced by the graph's later finalisations.
TEST_F(LogLoaderTest, FinalisationsKeepOneEntryPerGraph) {
    const VekProfileLogReader& r = loaded({
        call(kFinalize, 10, 20, "g").withEvents({EventSpec::u64("load", 1, 1, 100)}),
        call(kFinalize2, 30, 35, "h"),
        call(kFinalize2, 40, 43, "g").withEvents({EventSpec::u64("f", 2)}),
        call(kFinalize, 0, 100)});  // no graph name
    ASSERT_EQ(graphNames(r.finalizes), (Names{"g", "h"}));
    const NamedSample& g = r.finalizes[0];
    EXPECT_EQ(g.netRunUs, 3u);
    EXPECT_EQ(g.auxValue, 40u);
    EXPECT_EQ(eventNames(g.events), (Names{"f"}));
    EXPECT_TRUE(r.hasFinalize && r.hasFinalizeEvents);
    EXPECT_TRUE(r.initEvents.empty());  // replaced by the last call's none
}

// The last call of each kind fills its slot (context creation, composition
// and the binary init: see the init total).
TEST_F(LogLoaderTest, SingleCallsOverwriteTheirSlot) {
    const std::vector<EventSpec> two = {EventSpec::u64("two", 2), EventSpec::u64("three", 3)};
    const VekProfileLogReader& r =
        loaded({call(kNetRun, 1, 11), call(kNetRun, 2, 22).withEvents(two), call(kDeinit, 3, 33).withEvents(two),
                call(kDeinit, 4, 44), call(kLibLoad, 5, 55).withEvents(two), call(kBinaryInit, 6, 66).withEvents(two)});
    EXPECT_TRUE(r.hasNetRun && r.hasLibLoad && r.hasBinaryInit);
    EXPECT_EQ((std::vector<uint64_t>{r.netRunTimestamp, r.netRunDuration, r.deinitTimestamp, r.deinitDuration,
                                     r.libLoadTimestamp, r.libLoadDuration}),
              (std::vector<uint64_t>{2, 20, 4, 40, 5, 50}));
    EXPECT_EQ(eventNames(r.netRunEvents), (Names{"two", "three"}));
    EXPECT_TRUE(r.deinitEvents.empty());  // the last call's none
    EXPECT_EQ(r.libLoadEvents.size() + r.binaryInitEvents.size(), 4u);
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
        {{call(kContextCreate, 100, 105), call(kCompose, 200, 207), call(kFinalize, 400, 413, "g1"),
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

TEST_F(LogLoaderTest, OnlyTheFirstHeaderIsSavedEvenFromTheSecondChunk) {
    LogWriter log;
    log.chunk().message(execute("g", 0, 1));
    log.chunk().header(HeaderSpec{}.tool("second", "1")).message(execute("g", 0, 1));
    log.chunk().header(HeaderSpec{}.tool("third", "1"));
    ASSERT_TRUE(load(log));
    EXPECT_EQ(reader_->toolName, "second");
    loaded({execute("g", 0, 1)});  // without any header nothing is printed
    EXPECT_FALSE(reader_->headerSaved);
    EXPECT_EQ(reader_->printHeader(), "");
}

// The printed header (the log's path left out) of headers with edge values:
// local time, scales, large clocks, a tool or backend missing, a time that
// asctime cannot show (nothing printed); and the updater mode, for the exact
// tool name only.
TEST_F(LogLoaderTest, HeaderTextAndUpdaterMode) {
    HeaderSpec nameOnly, versionOnly;
    nameOnly.toolName = "tool";
    versionOnly.toolVersion = "1.0";
    versionOnly.backend = "";
    const std::string lora = kLoraAdapterUpdaterToolName;
    std::vector<std::pair<const char*, HeaderSpec>> cases = {
        {"EST5", HeaderSpec{}.epoch(999999)}, {"UTC", HeaderSpec{}.scale(0.001f)},
        {"UTC", HeaderSpec{}.scale(1234567.0f)}, {"UTC", HeaderSpec{}.scale(0.0f)},
        {"UTC", HeaderSpec{}.epoch(1773151387000000ull).steady(98765432100ull)}, {"UTC", nameOnly},
        {"UTC", versionOnly}, {"UTC", HeaderSpec{}.epoch(UINT64_MAX)}};
    for (const std::string& name : {lora, lora + " ", std::string("ZOLRA-LORA-ADAPTER-BIN-UPDATER"),
                                    std::string("Zolra-lora-adapter-bin-updater"), lora.substr(0, lora.size() - 1),
                                    lora + std::string(1, '\0')}) {
        cases.emplace_back("UTC", HeaderSpec{}.tool(name, "1"));
    }
    std::string all;
    for (const auto& [zone, header] : cases) {
        setenv("TZ", zone, 1);
        tzset();
        LogWriter log;
        log.chunk().header(header).message(execute("g", 0, 1));
        ASSERT_TRUE(load(log));
        std::string text = reader_->printHeader();
        if (text.find(path_) != std::string::npos) text.replace(text.find(path_), path_.size(), "profile.bin");
        all += std::string("== TZ=") + zone + (reader_->loraAdapterUpdaterMode ? ", updater mode\n" : "\n") + text;
    }
    setenv("TZ", "UTC", 1);
    tzset();
    EXPECT_TRUE(matchesGolden(all, "log/header_text.txt"));
}

template <typename T>
T lowBytes(const ProfileEvent& event) {
    T value;
    std::memcpy(&value, &event.value.payload, sizeof value);
    return value;
}

// One line per event with every field and the value read by its type; children indented.
void describe(const ProfileEvent& e, const std::string& indent, std::ostream& out) {
    out << indent << std::string(e.name) << " id=" << e.identifier << " unit=" << e.unit << " detail="
        << std::string(e.detail) << " ts=" << e.timestamp << " n=" << e.sampleCount << std::hex << " type=0x"
        << e.value.dataType << std::dec;
    if (e.value.dataType == 0x0608) out << " text=" << lowBytes<const char*>(e);
    if (e.value.dataType != 0x0608) out << " payload=" << e.value.payload;
    if (e.value.dataType == 0x0232) out << " float=" << lowBytes<float>(e);
    if (e.value.dataType == 0x0264) out << " double=" << lowBytes<double>(e);
    for (uint8_t byte : e.bytes.vector()) out << " byte=" << int{byte};
    out << " children=" << e.children.size() << "\n";
    for (size_t i = 0; i < e.children.size() && i < 3; ++i) describe(e.children[i], indent + "  ", out);
}

// Every value type and field as loaded (texts outliving the chunk), and a list
// larger than a block of the event arena among small ones made before and after it.
TEST_F(LogLoaderTest, CopiesEveryFieldAndValueTypeAndKeepsTextsPastTheChunk) {
    std::vector<EventSpec> wide;
    for (uint64_t i = 0; i < 20000; ++i) wide.push_back(EventSpec::u64("w", i));
    EventSpec nameless = EventSpec{}.id(404).withUnit(3).withDetail("d").at(123456789012ull);  // no name, no value
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
         typed("no text", kValueString), EventSpec::u64("wide", 0).withChildren(std::move(wide)),
         EventSpec::text("outer", "x").withChildren({EventSpec::text("inner", std::string(300, 'x'))}), nameless})});
    const EventSpan events = r.executions.at(0).samples.at(0).events;
    ASSERT_EQ(events.size(), 13u);
    const EventSpan w = events[10].children;
    ASSERT_EQ(w.size(), 20000u);
    for (size_t i = 0; i < w.size(); ++i) ASSERT_EQ(w[i].value.payload, i);
    std::ostringstream text;
    for (const ProfileEvent& event : events) describe(event, "", text);
    EXPECT_TRUE(matchesGolden(text.str(), "log/every_value_type.txt"));
    EXPECT_EQ(r.internedStrings.size(), 4u);
}

}  // namespace
}  // namespace vek::profiling
