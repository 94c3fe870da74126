// Writes the fuzzers' seed corpus: logs in the shapes the tests use (every
// method type and value type, linting op records, the adapter updater's
// header, object events, several chunks, cut and corrupt tails, the deepest
// nesting the verifier allows) and the examples, each as a log for the
// pipeline target and as JSON for the encoder target.
//
//   vek_fuzz_seeds OUT_DIR EXAMPLES_DIR   writes OUT_DIR/log/*.log, OUT_DIR/json/*.json
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "LogJson.h"
#include "chrometrace/LintingIdentifiers.h"
#include "log/ProfileEvent.h"
#include "support/LogWriter.h"
#include "support/MemoryFile.h"

namespace {

namespace fs = std::filesystem;
using namespace vek::profiling;
using namespace vek::profiling::testlog;

// An op record as the runtime logs it under an execution event.
EventSpec opRecord(const std::string& name, uint64_t duration, uint64_t mask) {
    return EventSpec::u64(name, duration, 1, kOpRecordIdentifier)
        .withChildren({EventSpec::u64("wait", duration / 4, 1, kWaitDurationIdentifier),
                       EventSpec::u64("op bg", duration / 2, 1, kOpBackgroundIdentifier)
                           .withChildren({EventSpec::u64("dma_in", 0, 6,
                                                         kOpBackgroundNameIdentifier)}),
                       EventSpec::u64("wait bg", 3, 1, kWaitBackgroundIdentifier)
                           .withChildren({EventSpec::u64("dma_out", 0, 6,
                                                         kWaitBackgroundNameIdentifier)}),
                       EventSpec::u64("resources", mask, 6, kResourceMaskIdentifier)});
}

std::vector<EventSpec> everyValueType() {
    EventSpec nameless;
    nameless.identifier = 7;
    nameless.valueType = 99;  // no value
    return {EventSpec::i64("signed", -5, 1),
            EventSpec::u64("cycles", 1234, 3),
            EventSpec::f32("ratio", 0.5f, 4),
            EventSpec::f64("rate", 1058.25, 6),
            EventSpec::text("label", "text value"),
            EventSpec::u64("bytes", 4096, 2).withDetail("detail text").at(77),
            nameless};
}

LogWriter everyMethodType() {
    LogWriter log;
    ChunkSpec& chunk = log.chunk().header(
        HeaderSpec{}.tool("net-run", "2.1").backendText("Backend 4.2").epoch(1718031845123456));
    for (uint8_t type = 0; type <= 18; ++type) {
        chunk.message(MessageSpec(type).graph("graph").times(100u * type, 100u * type + 50)
                          .withEvents(everyValueType()));
    }
    return log;
}

LogWriter lintingRun() {
    LogWriter log;
    ChunkSpec& chunk = log.chunk().header(HeaderSpec{}.tool("net-run", "2.1"));
    chunk.message(MessageSpec(kLibLoad).times(0, 900).withEvents({EventSpec::u64("dlopen", 880)}))
        .message(MessageSpec(kContextCreate).times(1000, 1400))
        .message(MessageSpec(kCompose).times(1500, 1600))
        .message(MessageSpec(kFinalize).graph("g0").times(1700, 2600).withEvents({
            EventSpec::u64("Init Stats", 500, 1, kInitEventIdentifier)
                .withChildren({EventSpec::u64("Load weights", 400)}),
            EventSpec::u64("Finalize detail", 300)}));
    for (int run = 0; run < 3; ++run) {
        for (const char* graph : {"g0", "g1"}) {
            const uint64_t start = 3000 + 1000u * run;
            chunk.message(MessageSpec(run == 2 ? kExecuteRoundTrip : kExecute)
                              .graph(graph).times(start, start + 700 + 10u * run)
                              .withEvents({
                                  EventSpec::u64("Accelerator", 600).withChildren({
                                      opRecord("conv_1", 200 + 10u * run, 3),
                                      opRecord("pool_1", 90, 5),
                                  }),
                                  EventSpec::u64("Queue Wait", 20 + run, 1, kQueueWaitIdentifier)
                                      .withChildren({EventSpec::u64("host", 5)}),
                                  EventSpec::u64("hidden", 1, 1, 9005)
                                      .withChildren({EventSpec::u64("inner", 2)}),
                              }));
        }
    }
    chunk.message(MessageSpec(kNetRun).times(2900, 7000).withEvents({
        EventSpec::u64("duration", 4100), EventSpec::u64("inferences", 6, 4)}))
        .message(MessageSpec(kDeinit).times(7100, 7300).withEvents({EventSpec::u64("free", 150)}));
    return log;
}

LogWriter adapterUpdater() {
    LogWriter log;
    ChunkSpec& chunk = log.chunk().header(
        HeaderSpec{}.tool("zolra-lora-adapter-bin-updater", "1.0").backendText("Backend"));
    for (uint8_t type : {kApplyBinarySection, kApplyBinarySection2, kFinalizeAfterTensorUpdates,
                         kUpdateBinarySection, kUpdateBinarySection}) {
        chunk.message(MessageSpec(type).graph("adapter").times(10, 40).withEvents({
            EventSpec::u64("section", 25).withChildren({EventSpec::u64("copy", 7, 2)})}));
    }
    return log;
}

LogWriter objectEvents() {
    LogWriter log;
    log.chunk().message(MessageSpec(kExecute).graph("g").times(0, 100).withEvents({
        EventSpec::object("Blob", {1, 2, 3}, "blob.bin")
            .withChildren({EventSpec::object("Part", {4}, "part.dat"), EventSpec::u64("n", 1)}),
        EventSpec::object("Nameless", {}, ""),
    }));
    log.chunk().message(MessageSpec(kBinaryInit).times(0, 10).withEvents({
        EventSpec::object("Init blob", {9, 9}, "init")}));
    return log;
}

LogWriter severalChunks() {
    LogWriter log;
    log.chunk();  // no header, no message vector
    log.chunk().header(HeaderSpec{}.tool("second", "1").epoch(0)).message(
        MessageSpec(kExecute).graph("g").times(5, 9).visible(20));
    log.chunk().header(HeaderSpec{}.tool("third", "1")).message(
        MessageSpec(kContextGetBinarySize).times(1, 3))
        .message(MessageSpec(kContextGetBinary).times(3, 8))
        .message(MessageSpec(kContextGetBinarySectionSize).times(8, 9))
        .message(MessageSpec(kContextGetBinarySectionSize).times(9, 12));
    log.rawBytes({0x10, 0x00});  // a length field cut short
    return log;
}

LogWriter corruptTail() {
    LogWriter log = lintingRun();
    const std::vector<uint8_t> chunk =
        buildChunk(ChunkSpec{}.message(MessageSpec(kExecute).graph("g").times(0, 1)));
    std::vector<uint8_t> cut = lengthPrefixed(chunk);
    cut.resize(cut.size() - 3);
    log.rawBytes(cut);
    return log;
}

LogWriter deepestNesting() {
    EventSpec event = EventSpec::u64("leaf", 1);
    for (int level = 1; level < 62; ++level) {
        event = EventSpec::u64("level " + std::to_string(level), level).withChildren({event});
    }
    LogWriter log;
    log.chunk().message(MessageSpec(kExecute).graph("deep").times(0, 10).withEvents({event}));
    return log;
}

void writeBytes(const fs::path& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + path.string());
}

std::string readBytes(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Writes numbers exactly as they were read (this RapidJSON's writer would
// quote them).
struct ExactNumberWriter : rapidjson::Writer<rapidjson::StringBuffer> {
    using Writer::Writer;
    bool RawNumber(const char* text, rapidjson::SizeType length, bool) {
        return RawValue(text, length, rapidjson::kNumberType);
    }
};

// The JSON without blanks between its tokens: short seeds mutate faster.
std::string minified(const std::string& json) {
    rapidjson::StringStream in(json.c_str());
    rapidjson::StringBuffer out;
    ExactNumberWriter writer(out);
    rapidjson::Reader reader;
    if (reader.Parse<rapidjson::kParseNumbersAsStringsFlag>(in, writer).IsError()) return json;
    return std::string(out.GetString(), out.GetSize());
}

// The JSON of a log, or empty when the tool refuses it (a corrupt tail).
std::string decodeToJson(const std::string& log) {
    const MemoryFile in(log);
    std::ostringstream json;
    return decodeLog(in.get(), json).ok() ? minified(json.str()) : std::string();
}

std::string encodeToLog(const std::string& json) {
    const MemoryFile in(json);
    std::ostringstream log;
    return encodeJson(in.get(), log).ok() ? log.str() : std::string();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: vek_fuzz_seeds OUT_DIR EXAMPLES_DIR\n");
        return 2;
    }
    const fs::path out = argv[1];
    fs::create_directories(out / "log");
    fs::create_directories(out / "json");
    std::map<std::string, std::string> logs;
    const std::map<std::string, LogWriter> built = {
        {"every_method_type", everyMethodType()}, {"linting_run", lintingRun()},
        {"adapter_updater", adapterUpdater()},    {"object_events", objectEvents()},
        {"several_chunks", severalChunks()},      {"corrupt_tail", corruptTail()},
        {"deepest_nesting", deepestNesting()},
    };
    for (const auto& [name, writer] : built) {
        const std::vector<uint8_t> bytes = writer.bytes();
        logs[name] = std::string(bytes.begin(), bytes.end());
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(argv[2])) {
        if (entry.path().extension() != ".json") continue;
        const std::string json = readBytes(entry.path());
        writeBytes(out / "json" / entry.path().filename(), minified(json));
        const std::string log = encodeToLog(json);
        if (!log.empty()) logs[entry.path().stem().string()] = log;
    }
    for (const auto& [name, log] : logs) {
        writeBytes(out / "log" / (name + ".log"), log);
        const std::string json = decodeToJson(log);
        if (!json.empty()) writeBytes(out / "json" / (name + ".json"), json);
    }
    std::printf("%zu log seeds, JSON seeds in %s\n", logs.size(), (out / "json").c_str());
    return 0;
}
