// Logs crafted to break the reader: lengths, counts and offsets that point
// beyond the chunk, nesting past the verifier's limit, tables and strings
// shared to multiply the work, a million tiny messages, and names that are
// not text. Each must end clearly (refused as corrupt, or loaded) without a
// crash, a hang, or memory out of proportion to the file.
#include <rapidjson/document.h>

#include <functional>

#include "profile_log_generated.h"
#include "reliability/Reliability.h"

namespace vek::profiling {
namespace {

using namespace testlog;
using flatbuffers::FlatBufferBuilder;
using flatbuffers::Offset;
using reliability::peakGrowth;
using Events = std::vector<Offset<fb::LogEvent>>;

// AddressSanitizer holds on to released memory (up to 256 MB) to catch uses
// after free, so released chunk buffers still count as resident there.
#if defined(__SANITIZE_ADDRESS__)
constexpr int64_t kQuarantine = int64_t{256} << 20;
#else
constexpr int64_t kQuarantine = 0;
#endif

// One execution whose events, built by `events`, share tables or strings:
// a few hundred bytes that read as far more.
std::vector<uint8_t> sharing(const std::function<Events(FlatBufferBuilder&, Offset<flatbuffers::String>)>& events) {
    FlatBufferBuilder fbb;
    const auto list = fbb.CreateVector(events(fbb, fbb.CreateString("e")));
    const auto graph = fbb.CreateString("g");
    const auto message = fb::CreateLogMessage(fbb, fb::CreateMessageStamp(fbb, 1, 0), kExecute,
                                              fb::CreateMessageTiming(fbb, 1, 2), 0, list, graph);
    fbb.Finish(fb::CreateLogChunk(fbb, 0, fbb.CreateVector(&message, 1)));
    return lengthPrefixed({fbb.GetBufferPointer(), fbb.GetBufferPointer() + fbb.GetSize()});
}

// A chunk whose message has a graph name, events and a byte value, with the
// u32 at what `site` points to overwritten by `value`.
std::vector<uint8_t> patched(const std::function<const void*(const fb::LogChunk&)>& site, uint32_t value) {
    std::vector<uint8_t> chunk = buildChunk(ChunkSpec{}.message(MessageSpec(kExecute).graph("graph").times(0, 5).withEvents(
        {EventSpec::u64("e", 1), EventSpec::object("o", {1, 2, 3}, "o.bin")})));
    const auto at = static_cast<size_t>(static_cast<const uint8_t*>(site(*fb::GetLogChunk(chunk.data()))) - chunk.data());
    for (size_t i = 0; i < 4; ++i) chunk[at + i] = static_cast<uint8_t>(value >> (8 * i));
    return lengthPrefixed(chunk);
}

const fb::LogMessage& first(const fb::LogChunk& chunk) { return *chunk.messages()->Get(0); }

std::vector<uint8_t> nestedEvents(int levels) {
    EventSpec event = EventSpec::u64("leaf", 1);
    for (int level = 1; level < levels; ++level) {
        event = EventSpec::u64("level", static_cast<uint64_t>(level)).withChildren({event});
    }
    return lengthPrefixed(buildChunk(ChunkSpec{}.message(MessageSpec(kExecute).graph("deep").times(0, 9).withEvents({event}))));
}

TEST(HostileLog, CorruptChunksAreRefusedWithoutOverreaching) {
    const struct {
        const char* what;
        std::vector<uint8_t> tail;  // what follows a good chunk in the file
    } cases[] = {
        {"length field 0xFFFFFFFF", {0xff, 0xff, 0xff, 0xff, 1, 2, 3, 4}},
        {"root offset beyond the chunk", [] {
             std::vector<uint8_t> empty = buildChunk(ChunkSpec{});
             empty[0] = 0;
             empty[1] = 0x10;  // the root offset (u32, little-endian) is now 0x1000
             return lengthPrefixed(empty);
         }()},
        {"message count 0xFFFFFFFF", patched([](const fb::LogChunk& c) { return c.messages(); }, 0xffffffff)},
        {"message count one too many", patched([](const fb::LogChunk& c) { return c.messages(); }, 2)},
        {"event count 0x3FFFFFFF", patched([](const fb::LogChunk& c) { return first(c).events(); }, 0x3fffffff)},
        {"graph name longer than the chunk",
         patched([](const fb::LogChunk& c) { return first(c).graphName(); }, 0x7ffffff0)},
        {"byte value longer than the chunk",
         patched([](const fb::LogChunk& c) { return first(c).events()->Get(1)->bytesValue(); }, 0xfffffff0)},
        // The chunk, the message and 63 levels of events: one table too deep.
        {"nesting deeper than 64 tables", nestedEvents(63)},
        {"event tables shared 2^40 ways", sharing([](FlatBufferBuilder& fbb, auto name) {
             Offset<fb::LogEvent> level = fb::CreateLogEvent(fbb, name);
             for (int i = 0; i < 40; ++i) level = fb::CreateLogEvent(fbb, name, 0, 0, 0, fbb.CreateVector(Events{level, level}));
             return Events{level};
         })},
        {"one long name shared by 4000 events", sharing([](FlatBufferBuilder& fbb, auto) {
             const auto name = fbb.CreateString(std::string(60000, 'n'));
             Events events;
             for (int i = 0; i < 4000; ++i) events.push_back(fb::CreateLogEvent(fbb, name));
             return events;
         })},
    };
    const char* const kCorrupt = "Corrupted flatbuffer binary stream";
    for (const auto& hostile : cases) {
        SCOPED_TRACE(hostile.what);
        TempDir dir;
        LogWriter log;
        log.chunk().message(MessageSpec(kExecute).graph("kept").times(0, 10));
        log.rawBytes(hostile.tail).writeTo(dir.file("hostile.bin"));
        LogCapture capture(1);
        VekProfileLogReader reader(dir.file("hostile.bin"), VisibilityLevel(10));
        bool loaded = true;
        const int64_t growth = peakGrowth([&] { loaded = reader.loadLog(false); });
        EXPECT_FALSE(loaded);
        EXPECT_EQ(capture.count(kCorrupt), 1u);
        EXPECT_TRUE(capture.contains(kCorrupt, 1));
        ASSERT_EQ(reader.executions.size(), 1u);
        EXPECT_EQ(reader.executions[0].graphName, "kept");
        EXPECT_LT(growth, reliability::kMemoryBound);
    }
}

TEST(HostileLog, NestingAtTheVerifiersLimitLoadsAndReports) {
    TempDir dir;
    // The chunk, the message and 62 levels of events: exactly 64 tables deep.
    LogWriter().rawBytes(nestedEvents(62)).writeTo(dir.file("deep.bin"));
    VekProfileLogReaderChrometrace chrome(dir.file("deep.bin"), VisibilityLevel(10));
    VekProfileLogReader summary(dir.file("deep.bin"), VisibilityLevel(10));
    ASSERT_TRUE(chrome.loadLog(false));
    ASSERT_TRUE(summary.loadLog(false));
    testing::internal::CaptureStdout();
    EXPECT_TRUE(chrome.writeOutput(dir.file("trace.json")));
    EXPECT_TRUE(summary.writeOutput(dir.file("summary.csv")));
    // The backend listing goes down every level, 4 blanks deeper each time.
    EXPECT_NE(testing::internal::GetCapturedStdout().find(std::string(4 * 63, ' ') + "leaf: 1  us"), std::string::npos);
}

TEST(HostileLog, AMillionTinyMessagesLoadInBoundedMemory) {
    // One chunk of 10,000 messages, written 100 times. They cycle through the
    // calls the model keeps one of (the latest), so the model stays small
    // however long the log: memory must not follow the file.
    const uint8_t kinds[] = {kBinaryInit, kDeinit, kNetRun, kLibLoad, kContextGetBinarySize, kContextGetBinary,
                             kUpdateBinarySection};
    ChunkSpec chunk;
    for (uint32_t i = 0; i < 10000; ++i) chunk.message(MessageSpec(kinds[i % 7]).times(i, i + 1 + i % 3));
    TempDir dir;
    {
        const std::vector<uint8_t> body = buildChunk(chunk);
        LogWriter log;
        for (int copy = 0; copy < 100; ++copy) log.rawChunk(body);
        log.writeTo(dir.file("many.bin"));
    }
    LogCapture capture(1);
    VekProfileLogReader reader(dir.file("many.bin"), VisibilityLevel(10));
    bool loaded = false;
    const int64_t growth = peakGrowth([&] { loaded = reader.loadLog(false); });
    ASSERT_TRUE(loaded);
    EXPECT_TRUE(capture.messages().empty());
    // Read to the end, keeping the last of each kind: message 9999 is a library load.
    EXPECT_EQ(reader.libLoadTimestamp, 9999u);
    EXPECT_EQ(reader.updateBinarySections.size(), 1u);
    EXPECT_EQ(reader.contextBinaryCalls.size(), 2u);
    // One chunk at a time, not the file, nor a million messages' worth of model.
    EXPECT_LT(growth, kQuarantine + (int64_t{16} << 20)) << growth;
}

TEST(HostileLog, NulBytesAndInvalidUtf8InNamesStillGiveATrace) {
    // Names as the runtime could send them: any bytes, NUL and invalid UTF-8 included.
    const std::string graph("gr\0aph\xff", 7), nulOp("co\0nv", 5);
    const std::string badOp = "\xc3\x28\xff\xfe";  // a cut two-byte sequence, then no UTF-8 at all
    const std::string badBackground = "dma\x80";
    TempDir dir;
    LogWriter log;
    log.chunk().message(MessageSpec(kExecute).graph(graph).times(100, 350).withEvents(
        {EventSpec::u64("Accelerator", 200).withChildren(
            {reliability::loggedOp(nulOp, 40, badBackground), reliability::loggedOp(badOp, 40, badBackground)})}));
    log.writeTo(dir.file("names.bin"));
    VekProfileLogReaderChrometrace reader(dir.file("names.bin"), VisibilityLevel(10));
    ASSERT_TRUE(reader.loadLog(false));
    testing::internal::CaptureStdout();
    ASSERT_TRUE(reader.writeOutput(dir.file("trace.json")));
    // The summary prints the bytes as they are.
    EXPECT_NE(testing::internal::GetCapturedStdout().find(graph), std::string::npos);

    // The trace escapes the NUL and passes the other bytes through unchanged,
    // so it parses as JSON but is not valid UTF-8.
    const std::string trace = readFile(dir.file("trace.json"));
    EXPECT_NE(trace.find("\"co\\u0000nv\""), std::string::npos);
    EXPECT_NE(trace.find("\"" + badOp + "\""), std::string::npos);
    EXPECT_NE(trace.find("\"" + badBackground + "\""), std::string::npos);
    rapidjson::Document strict, document;
    EXPECT_TRUE(strict.Parse<rapidjson::kParseValidateEncodingFlag>(trace.c_str(), trace.size()).HasParseError());
    ASSERT_FALSE(document.Parse(trace.c_str(), trace.size()).HasParseError());
    std::vector<std::string> names;
    for (const auto& event : document["traceEvents"].GetArray()) {
        names.emplace_back(event["name"].GetString(), event["name"].GetStringLength());
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Wait", "", nulOp, badBackground, "Wait", "", badOp, badBackground}));
}

}  // namespace
}  // namespace vek::profiling
