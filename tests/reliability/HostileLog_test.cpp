// Logs crafted, cut or found by the fuzzers to break the reader must end clearly (refused as corrupt,
// or loaded) without a crash, a hang, or memory out of proportion to the file.
#include <rapidjson/document.h>

#include <cstring>
#include <functional>
#include <sstream>

#include "log/LogScan.h"
#include "profile_log_generated.h"
#include "reliability/JsonRoundTrip.h"
#include "reliability/LogPipeline.h"
#include "reliability/Reliability.h"

namespace vek::profiling {
namespace {

namespace fs = std::filesystem;
using flatbuffers::FlatBufferBuilder;
using flatbuffers::Offset;
using reliability::peakGrowth;
using Events = std::vector<Offset<fb::LogEvent>>;

#if defined(__SANITIZE_ADDRESS__)
constexpr int64_t kQuarantine = int64_t{256} << 20;  // released memory AddressSanitizer keeps resident
#else
constexpr int64_t kQuarantine = 0;
#endif

// One execution whose events share tables or strings: a few hundred bytes that read as far more.
std::vector<uint8_t> sharing(const std::function<Events(FlatBufferBuilder&, Offset<flatbuffers::String>)>& events) {
    FlatBufferBuilder fbb;
    const auto list = fbb.CreateVector(events(fbb, fbb.CreateString("e")));
    const auto graph = fbb.CreateString("g");
    const auto message = fb::CreateLogMessage(fbb, fb::CreateMessageStamp(fbb, 1, 0), kExecute,
                                              fb::CreateMessageTiming(fbb, 1, 2), 0, list, graph);
    fbb.Finish(fb::CreateLogChunk(fbb, 0, fbb.CreateVector(&message, 1)));
    return lengthPrefixed({fbb.GetBufferPointer(), fbb.GetBufferPointer() + fbb.GetSize()});
}

// A chunk with a graph name, events and a byte value, the u32 at `site` overwritten by `value`.
using Chunk = const fb::LogChunk&;
std::vector<uint8_t> patched(const std::function<const void*(Chunk)>& site, uint32_t value) {
    std::vector<uint8_t> chunk = buildChunk(ChunkSpec{}.message(MessageSpec(kExecute).graph("graph").times(0, 5).withEvents(
        {EventSpec::u64("e", 1), EventSpec::object("o", {1, 2, 3}, "o.bin")})));
    const auto at = static_cast<size_t>(static_cast<const uint8_t*>(site(*fb::GetLogChunk(chunk.data()))) - chunk.data());
    for (size_t i = 0; i < 4; ++i) chunk[at + i] = static_cast<uint8_t>(value >> (8 * i));
    return lengthPrefixed(chunk);
}

const fb::LogMessage& first(Chunk chunk) { return *chunk.messages()->Get(0); }

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
        {"root offset beyond the chunk", lengthPrefixed({0, 0x10, 0, 0, 0, 0, 0, 0})},
        {"message count 0xFFFFFFFF", patched([](Chunk c) { return c.messages(); }, 0xffffffff)},
        {"message count one too many", patched([](Chunk c) { return c.messages(); }, 2)},
        {"event count 0x3FFFFFFF", patched([](Chunk c) { return first(c).events(); }, 0x3fffffff)},
        {"graph name longer than the chunk", patched([](Chunk c) { return first(c).graphName(); }, 0x7ffffff0)},
        {"byte value longer than the chunk",
         patched([](Chunk c) { return first(c).events()->Get(1)->bytesValue(); }, 0xfffffff0)},
        {"nesting deeper than 64 tables", nestedEvents(63)},  // the chunk, the message, 63 events
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

// 100 copies of a chunk of 10,000 calls the model keeps only the latest of: memory must not follow the file.
TEST(HostileLog, AMillionTinyMessagesLoadInBoundedMemory) {
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
    ASSERT_TRUE(loaded && capture.messages().empty());
    EXPECT_EQ(reader.libLoadTimestamp, 9999u);  // the last message
    EXPECT_EQ(reader.updateBinarySections.size(), 1u);
    EXPECT_EQ(reader.contextBinaryCalls.size(), 2u);
    EXPECT_LT(growth, kQuarantine + (int64_t{16} << 20)) << growth;
}

// Names are any bytes the runtime sends: the trace escapes NUL and passes the rest through
// unchanged, so it parses as JSON but is not valid UTF-8.
TEST(HostileLog, NulBytesAndInvalidUtf8InNamesStillGiveATrace) {
    const std::string graph("gr\0aph\xff", 7), nulOp("co\0nv", 5), badBackground = "dma\x80";
    const std::string badOp = "\xc3\x28\xff\xfe";  // a cut two-byte sequence, then no UTF-8 at all
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
    EXPECT_NE(testing::internal::GetCapturedStdout().find(graph), std::string::npos);
    rapidjson::Document document;
    ASSERT_FALSE(document.Parse(readFile(dir.file("trace.json")).c_str()).HasParseError());
    std::vector<std::string> names;
    for (const auto& event : document["traceEvents"].GetArray()) {
        names.emplace_back(event["name"].GetString(), event["name"].GetStringLength());
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Wait", "", nulOp, badBackground, "Wait", "", badOp, badBackground}));
}

std::string traceOf(const std::string& logPath, bool salvage) {
    VekProfileLogReaderChrometrace reader(logPath, VisibilityLevel(127));
    setSalvageLoad(&reader, salvage);
    EXPECT_TRUE(reader.loadLog(false));
    std::ostringstream trace;
    EXPECT_TRUE(writeTrace(&reader, trace, trace, TraceFormat::Exact));
    return trace.str();
}

LogScanSummary scanFile(const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    const LogScanSummary summary = scanLog(file, ScanExtent::kWholeLog);
    std::fclose(file);
    return summary;
}

// A run that dies mid-write cuts the last chunk. At every cut, the scan names the place, the valid
// prefix is the chunks before it, and a salvage load reports what a load of that prefix reports.
TEST(CutLog, EveryCutOfTheLastChunkIsFoundTrimmedAndSalvaged) {
    const std::string sample = reliability::sampleLog();
    std::vector<size_t> starts;  // of its chunks
    uint32_t length = 0;
    for (size_t at = 0; at < sample.size(); at += 4 + length) {
        starts.push_back(at);
        std::memcpy(&length, &sample[at], 4);
    }
    ASSERT_GE(starts.size(), 2u);
    const size_t last = starts.back();
    TempDir dir;
    const std::string log = dir.file("run.log");
    LogWriter().rawBytes({sample.begin(), sample.begin() + static_cast<std::ptrdiff_t>(last)}).writeTo(log);
    LogCapture quiet(0);
    const std::string expected = traceOf(log, false);
    LogWriter().rawBytes({sample.begin(), sample.end()}).writeTo(log);
    ASSERT_EQ(scanFile(log).problems, 0u);
    for (size_t cut = sample.size() - 1; cut > last; --cut) {  // shorter and shorter, in place
        SCOPED_TRACE("cut at " + std::to_string(cut));
        ASSERT_EQ(truncate(log.c_str(), static_cast<off_t>(cut)), 0);
        const LogScanSummary check = scanFile(log);
        ASSERT_EQ(check.problems, 1u);
        EXPECT_EQ(check.firstProblem.chunkIndex, starts.size() - 1);
        EXPECT_EQ(check.firstProblem.byteOffset, last);
        EXPECT_EQ(check.firstProblem.kind, cut - last < 4 ? ChunkProblemKind::TrailingBytes : ChunkProblemKind::CutChunk);
        ASSERT_EQ(check.prefixBytes, last);
        ASSERT_EQ(traceOf(log, true), expected);
    }
}

// Every input a fuzzer found a fault with (fuzz/regressions/), replayed through its fuzz target's
// work; the sanitizer build shows the faults themselves (undefined behaviour, runaway allocation).
std::vector<fs::path> regressionInputs(const char* kind) {
    const fs::directory_iterator entries(fs::path(VEK_SOURCE_DIR) / "fuzz/regressions" / kind);
    std::vector<fs::path> inputs(begin(entries), end(entries));
    EXPECT_FALSE(inputs.empty());
    return inputs;
}

TEST(FuzzRegression, LogInputsRunThroughTheWholePipeline) {
    const fs::path previous = fs::current_path();
    for (const fs::path& input : regressionInputs("log")) {
        TempDir dir;  // the current directory, where object files are saved
        LogCapture quiet(0);
        const std::string bytes = readFile(input.string());
        testing::internal::CaptureStdout();
        const int64_t growth = reliability::peakGrowth([&] {
            fs::current_path(dir.path());
            for (const bool flag : {false, true}) reliability::runWholePipeline(input.string(), dir.file("out.csv"), flag);
            reliability::decodeWithTheTool(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
            fs::current_path(previous);
        });
        testing::internal::GetCapturedStdout();
        EXPECT_LT(growth, reliability::kMemoryBound) << input.filename();
    }
}

TEST(FuzzRegression, JsonInputsSurviveTheRoundTrip) {
    for (const fs::path& input : regressionInputs("json")) {
        EXPECT_EQ(reliability::jsonRoundTripProblem(readFile(input.string())), "") << input.filename();
    }
}

}  // namespace
}  // namespace vek::profiling
