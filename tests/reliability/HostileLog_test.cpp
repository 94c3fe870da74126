// Logs crafted to break the reader: lengths, counts and offsets that point
// beyond the chunk, nesting past the verifier's limit, tables and strings
// shared to multiply the work, a million tiny messages, and names that are
// not text. Each must end clearly (refused as corrupt, or loaded) without a
// crash, a hang, or memory out of proportion to the file.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cstdint>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "chrometrace/LintingIdentifiers.h"
#include "profile_log_generated.h"
#include "reader/VekProfileLogReaderChrometrace.h"
#include "reliability/PeakMemory.h"
#include "support/LogCapture.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using namespace testlog;
using flatbuffers::FlatBufferBuilder;
using flatbuffers::Offset;
using reliability::peakGrowth;

const char* const kCorrupt = "Corrupted flatbuffer binary stream";
// Far below what any of the lengths and counts below claims, far above what
// loading a few kilobytes needs.
constexpr int64_t kMemoryBound = int64_t{64} << 20;
// AddressSanitizer holds on to released memory (up to 256 MB) to catch uses
// after free, so released chunk buffers still count as resident there.
#if defined(__SANITIZE_ADDRESS__)
constexpr int64_t kQuarantine = int64_t{256} << 20;
#else
constexpr int64_t kQuarantine = 0;
#endif

void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

void putU32(std::vector<uint8_t>& bytes, size_t at, uint32_t value) {
    for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<uint8_t>(value >> (8 * i));
}

std::vector<uint8_t> finished(FlatBufferBuilder& fbb, Offset<fb::LogMessage> message) {
    const auto messages = fbb.CreateVector(std::vector<Offset<fb::LogMessage>>{message});
    fbb.Finish(fb::CreateLogChunk(fbb, 0, messages));
    return std::vector<uint8_t>(fbb.GetBufferPointer(), fbb.GetBufferPointer() + fbb.GetSize());
}

Offset<fb::LogMessage> executeWith(FlatBufferBuilder& fbb,
                                   const std::vector<Offset<fb::LogEvent>>& events) {
    const auto list = fbb.CreateVector(events);
    const auto graph = fbb.CreateString("g");
    return fb::CreateLogMessage(fbb, fb::CreateMessageStamp(fbb, 1, 0), kExecute,
                                fb::CreateMessageTiming(fbb, 1, 2), 0, list, graph);
}

// Every event of a level points at the one event of the level below, twice:
// a few hundred bytes that read as 2^depth events.
std::vector<uint8_t> sharedSubtrees(int depth) {
    FlatBufferBuilder fbb;
    const auto name = fbb.CreateString("e");
    Offset<fb::LogEvent> level = fb::CreateLogEvent(fbb, name);
    for (int i = 0; i < depth; ++i) {
        const auto children = fbb.CreateVector(std::vector<Offset<fb::LogEvent>>{level, level});
        level = fb::CreateLogEvent(fbb, name, 0, 0, 0, children);
    }
    return finished(fbb, executeWith(fbb, {level}));
}

// Thousands of small events all naming one long string: every event would
// copy the whole string.
std::vector<uint8_t> sharedLongName(size_t nameSize, size_t events) {
    FlatBufferBuilder fbb;
    const auto name = fbb.CreateString(std::string(nameSize, 'n'));
    std::vector<Offset<fb::LogEvent>> list;
    for (size_t i = 0; i < events; ++i) list.push_back(fb::CreateLogEvent(fbb, name));
    return finished(fbb, executeWith(fbb, list));
}

// A chunk whose message has a graph name, events and a byte value, with the
// u32 at the position that `site` picks out overwritten by `value`.
using Site = std::function<const void*(const fb::LogChunk&)>;
std::vector<uint8_t> patched(const Site& site, uint32_t value) {
    std::vector<uint8_t> chunk = buildChunk(ChunkSpec{}.message(
        MessageSpec(kExecute).graph("graph").times(0, 5).withEvents(
            {EventSpec::u64("e", 1), EventSpec::object("o", {1, 2, 3}, "o.bin")})));
    const auto* at = static_cast<const uint8_t*>(site(*fb::GetLogChunk(chunk.data())));
    putU32(chunk, static_cast<size_t>(at - chunk.data()), value);
    return chunk;
}

std::vector<uint8_t> nestedEvents(int levels) {
    EventSpec event = EventSpec::u64("leaf", 1);
    for (int level = 1; level < levels; ++level) {
        event = EventSpec::u64("level", static_cast<uint64_t>(level)).withChildren({event});
    }
    return buildChunk(ChunkSpec{}.message(MessageSpec(kExecute).graph("deep").times(0, 9).withEvents({event})));
}

struct HostileCase {
    const char* what;
    std::vector<uint8_t> tail;  // what follows a good chunk in the file
};

std::vector<HostileCase> hostileCases() {
    const Site messages = [](const fb::LogChunk& c) { return c.messages(); };
    const Site events = [](const fb::LogChunk& c) { return c.messages()->Get(0)->events(); };
    const Site graphName = [](const fb::LogChunk& c) { return c.messages()->Get(0)->graphName(); };
    const Site bytes = [](const fb::LogChunk& c) {
        return c.messages()->Get(0)->events()->Get(1)->bytesValue();
    };
    std::vector<uint8_t> rootOutside = buildChunk(ChunkSpec{});
    putU32(rootOutside, 0, 0x1000);
    return {
        {"length field 0xFFFFFFFF", {0xff, 0xff, 0xff, 0xff, 1, 2, 3, 4}},
        {"root offset beyond the chunk", lengthPrefixed(rootOutside)},
        {"message count 0xFFFFFFFF", lengthPrefixed(patched(messages, 0xffffffff))},
        {"message count one too many", lengthPrefixed(patched(messages, 2))},
        {"event count 0x3FFFFFFF", lengthPrefixed(patched(events, 0x3fffffff))},
        {"graph name longer than the chunk", lengthPrefixed(patched(graphName, 0x7ffffff0))},
        {"byte value longer than the chunk", lengthPrefixed(patched(bytes, 0xfffffff0))},
        // The chunk, the message and 63 levels of events: one table too deep.
        {"nesting deeper than 64 tables", lengthPrefixed(nestedEvents(63))},
        {"event tables shared 2^40 ways", lengthPrefixed(sharedSubtrees(40))},
        {"one long name shared by 4000 events", lengthPrefixed(sharedLongName(60000, 4000))},
    };
}

TEST(HostileLog, CorruptChunksAreRefusedWithoutOverreaching) {
    const std::vector<uint8_t> good = lengthPrefixed(
        buildChunk(ChunkSpec{}.message(MessageSpec(kExecute).graph("kept").times(0, 10))));
    for (const HostileCase& hostile : hostileCases()) {
        TempDir dir;
        std::vector<uint8_t> bytes = good;
        bytes.insert(bytes.end(), hostile.tail.begin(), hostile.tail.end());
        writeBytes(dir.file("hostile.bin"), bytes);
        LogCapture capture(1);
        VekProfileLogReader reader(dir.file("hostile.bin"), VisibilityLevel(10));
        bool loaded = true;
        const int64_t growth = peakGrowth([&] { loaded = reader.loadLog(false); });
        EXPECT_FALSE(loaded) << hostile.what;
        EXPECT_EQ(capture.count(kCorrupt), 1u) << hostile.what;
        EXPECT_TRUE(capture.contains(kCorrupt, 1)) << hostile.what;
        ASSERT_EQ(reader.executions.size(), 1u) << hostile.what;
        EXPECT_EQ(reader.executions[0].graphName, "kept") << hostile.what;
        EXPECT_LT(growth, kMemoryBound) << hostile.what;
    }
}

TEST(HostileLog, NestingAtTheVerifiersLimitLoadsAndReports) {
    TempDir dir;
    // The chunk, the message and 62 levels of events: exactly 64 tables deep.
    const std::string log = dir.file("deep.bin");
    writeBytes(log, lengthPrefixed(nestedEvents(62)));
    VekProfileLogReaderChrometrace chrome(log, VisibilityLevel(10));
    VekProfileLogReader summary(log, VisibilityLevel(10));
    ASSERT_TRUE(chrome.loadLog(false));
    ASSERT_TRUE(summary.loadLog(false));
    testing::internal::CaptureStdout();
    EXPECT_TRUE(chrome.writeOutput(dir.file("trace.json")));
    EXPECT_TRUE(summary.writeOutput(dir.file("summary.csv")));
    const std::string printed = testing::internal::GetCapturedStdout();
    // The backend listing goes down every level, 4 blanks deeper each time.
    EXPECT_NE(printed.find(std::string(4 * 63, ' ') + "leaf: 1  us"), std::string::npos);
}

TEST(HostileLog, AMillionTinyMessagesLoadInBoundedMemory) {
    // One chunk of 10,000 messages, written 100 times. They cycle through the
    // calls the model keeps one of (the latest), so the model stays small
    // however long the log: memory must not follow the file.
    const uint8_t kinds[] = {kBinaryInit, kDeinit,           kNetRun,           kLibLoad,
                             kContextGetBinarySize, kContextGetBinary, kUpdateBinarySection};
    FlatBufferBuilder fbb;
    std::vector<Offset<fb::LogMessage>> messages;
    for (uint32_t i = 0; i < 10000; ++i) {
        messages.push_back(fb::CreateLogMessage(fbb, fb::CreateMessageStamp(fbb, i, 0), kinds[i % 7],
                                                fb::CreateMessageTiming(fbb, i, i + 1 + i % 3)));
    }
    fbb.Finish(fb::CreateLogChunk(fbb, 0, fbb.CreateVector(messages)));
    const std::vector<uint8_t> chunk = lengthPrefixed(
        std::vector<uint8_t>(fbb.GetBufferPointer(), fbb.GetBufferPointer() + fbb.GetSize()));
    TempDir dir;
    {
        std::ofstream out(dir.file("many.bin"), std::ios::binary);
        for (int copy = 0; copy < 100; ++copy) {
            out.write(reinterpret_cast<const char*>(chunk.data()),
                      static_cast<std::streamsize>(chunk.size()));
        }
    }
    LogCapture capture(1);
    VekProfileLogReader reader(dir.file("many.bin"), VisibilityLevel(10));
    bool loaded = false;
    const int64_t growth = peakGrowth([&] { loaded = reader.loadLog(false); });
    ASSERT_TRUE(loaded);
    EXPECT_TRUE(capture.messages().empty());
    // The last of each kind wins: message 9999 is a library load (9999 % 7 == 3).
    EXPECT_TRUE(reader.hasLibLoad && reader.hasNetRun && reader.hasBinaryInit);
    EXPECT_EQ(reader.libLoadTimestamp, 9999u);
    EXPECT_EQ(reader.libLoadDuration, 1u);
    EXPECT_EQ(reader.updateBinarySections.size(), 1u);
    EXPECT_EQ(reader.contextBinaryCalls.size(), 2u);
    // One chunk at a time, not the file, nor a million messages' worth of model.
    EXPECT_LT(growth, kQuarantine + (int64_t{16} << 20)) << growth;
}

// A name as the runtime could send it: any bytes, NUL and invalid UTF-8 included.
std::string bytesOf(const char* text, size_t size) { return std::string(text, size); }

TEST(HostileLog, NulBytesAndInvalidUtf8InNamesStillGiveATrace) {
    const std::string graph = bytesOf("gr\0aph\xff", 7);
    const std::string nulOp = bytesOf("co\0nv", 5);
    const std::string badOp = "\xc3\x28\xff\xfe";  // a cut two-byte sequence, then no UTF-8 at all
    const std::string badBackground = "dma\x80";
    auto op = [&](const std::string& name) {
        return EventSpec::u64(name, 40, 1, kOpRecordIdentifier).withChildren({
            EventSpec::u64("wait", 5, 1, kWaitDurationIdentifier),
            EventSpec::u64("bg", 30, 1, kOpBackgroundIdentifier)
                .withChildren({EventSpec::u64(badBackground, 0, 6, kOpBackgroundNameIdentifier)}),
            EventSpec::u64("bg wait", 3, 1, kWaitBackgroundIdentifier),
            EventSpec::u64("resources", 1, 1, kResourceMaskIdentifier)});
    };
    LogWriter log;
    log.chunk().message(MessageSpec(kExecute).graph(graph).times(100, 350).withEvents(
        {EventSpec::u64("Accelerator", 200).withChildren({op(nulOp), op(badOp)})}));
    TempDir dir;
    log.writeTo(dir.file("names.bin"));

    VekProfileLogReaderChrometrace reader(dir.file("names.bin"), VisibilityLevel(10));
    ASSERT_TRUE(reader.loadLog(false));
    testing::internal::CaptureStdout();
    ASSERT_TRUE(reader.writeOutput(dir.file("trace.json")));
    const std::string summary = testing::internal::GetCapturedStdout();
    EXPECT_NE(summary.find(graph), std::string::npos);  // the summary prints the bytes as they are

    // The trace escapes the NUL and passes the other bytes through unchanged,
    // so it parses as JSON but is not valid UTF-8.
    const std::string trace = readFile(dir.file("trace.json"));
    EXPECT_NE(trace.find("\"co\\u0000nv\""), std::string::npos);
    EXPECT_NE(trace.find("\"" + badOp + "\""), std::string::npos);
    EXPECT_NE(trace.find("\"" + badBackground + "\""), std::string::npos);
    rapidjson::Document strict;
    strict.Parse<rapidjson::kParseValidateEncodingFlag>(trace.c_str(), trace.size());
    EXPECT_TRUE(strict.HasParseError());
    rapidjson::Document document;
    document.Parse(trace.c_str(), trace.size());
    ASSERT_FALSE(document.HasParseError());
    std::vector<std::string> names;
    for (const auto& event : document["traceEvents"].GetArray()) {
        names.emplace_back(event["name"].GetString(), event["name"].GetStringLength());
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Wait", "", nulOp, badBackground, "Wait", "",
                                               badOp, badBackground}));
}

}  // namespace
}  // namespace profiling
}  // namespace vek
