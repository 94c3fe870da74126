#include "LargeLog.h"

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace bench {
namespace {

using testlog::ChunkSpec;
using testlog::EventSpec;
using testlog::HeaderSpec;
using testlog::MessageSpec;

// Identifiers of the linting op records and their children.
constexpr uint32_t kAcceleratorIdentifier = 1;
constexpr uint32_t kInitIdentifier = 100;
constexpr uint32_t kOpRecord = 404;
constexpr uint32_t kWait = 5001;
constexpr uint32_t kOpBackground = 5002;
constexpr uint32_t kWaitBackground = 5003;
constexpr uint32_t kResourceMask = 5004;
constexpr uint32_t kOpBackgroundName = 5005;
constexpr uint32_t kWaitBackgroundName = 5006;

constexpr uint32_t kUnitMicroseconds = 1;
constexpr uint32_t kUnitBytes = 2;
constexpr uint32_t kUnitNone = 6;

// About this many op records go into one chunk, so that chunks stay near a
// megabyte whatever the width of an execution.
constexpr uint32_t kOpsPerChunk = 2000;

const char* const kOpKinds[] = {"Conv2d",  "DepthwiseConv2d", "Add",     "Relu6",
                                "MaxPool", "FullyConnected",  "Reshape", "Softmax"};
const char* const kBackgroundWork[] = {"DMA prefetch", "Bias load", "Weights load",
                                       "Activation spill", "Descriptor fetch"};

// A fixed mix of the indices: the same call always gives the same number.
uint64_t mix(uint64_t a, uint64_t b = 0, uint64_t c = 0, uint64_t d = 0) {
    uint64_t x = a * 0x9E3779B97F4A7C15ull ^ (b + 0x632BE59BD9B4E019ull) * 0xBF58476D1CE4E5B9ull ^
                 (c + 0x85EBCA77C2B2AE63ull) * 0x94D049BB133111EBull ^ (d + 1) * 0xD6E8FEB86659FD93ull;
    x ^= x >> 30;
    x *= 0xBF58476D1CE4E5B9ull;
    x ^= x >> 27;
    x *= 0x94D049BB133111EBull;
    x ^= x >> 31;
    return x;
}

uint64_t between(uint64_t seed, uint64_t low, uint64_t high) {
    return low + seed % (high - low + 1);
}

// Names of background work (no value), picked by the seed; the same name may
// come twice.
std::vector<EventSpec> backgroundNames(uint64_t seed, uint32_t identifier, uint64_t count,
                                       uint64_t timestamp) {
    std::vector<EventSpec> names;
    names.reserve(count);
    for (uint64_t i = 0; i < count; ++i) {
        const size_t pick = (seed >> (8 * i)) % (sizeof kBackgroundWork / sizeof *kBackgroundWork);
        EventSpec name;
        name.name = kBackgroundWork[pick];
        name.identifier = identifier;
        name.timestamp = timestamp;
        names.push_back(std::move(name));
    }
    return names;
}

struct OpNames {
    std::vector<std::string> names;
    explicit OpNames(uint32_t count) {
        names.reserve(count);
        for (uint32_t i = 0; i < count; ++i) {
            names.push_back("block_" + std::to_string(i / 10) + "/" +
                            kOpKinds[i % (sizeof kOpKinds / sizeof *kOpKinds)] + "_" +
                            std::to_string(i));
        }
    }
};

// One op record with its four linting children, timed from `start`; returns
// its duration.
EventSpec opRecord(const std::string& name, uint64_t seed, uint64_t start, uint64_t& duration) {
    duration = between(mix(seed, 1), 20, 600);
    // One op in three waits.
    const uint64_t wait = mix(seed, 2) % 3 == 0 ? between(mix(seed, 3), 1, 80) : 0;
    const uint64_t namesSeed = mix(seed, 4);
    EventSpec opBackground = EventSpec::u64("background", between(mix(seed, 5), 0, duration),
                                            kUnitMicroseconds, kOpBackground);
    opBackground.at(start + wait)
        .withChildren(backgroundNames(namesSeed, kOpBackgroundName, 2, start + wait));
    EventSpec waitBackground = EventSpec::u64("wait background", wait / 2, kUnitMicroseconds,
                                              kWaitBackground);
    waitBackground.at(start).withChildren(
        backgroundNames(namesSeed >> 20, kWaitBackgroundName, 1, start));
    EventSpec op = EventSpec::u64(name, duration, kUnitMicroseconds, kOpRecord);
    op.at(start + wait).withChildren(
        {EventSpec::u64("wait", wait, kUnitMicroseconds, kWait).at(start),
         std::move(opBackground), std::move(waitBackground),
         EventSpec::u64("resources", 1 + mix(seed, 6) % 7, kUnitNone, kResourceMask).at(start)});
    return op;
}

std::string graphName(uint32_t graph) { return "graph_" + std::to_string(graph); }

class ChunkFile {
public:
    explicit ChunkFile(const std::string& path) : path_(path), file_(std::fopen(path.c_str(), "wb")) {
        if (!file_) throw std::runtime_error("cannot write " + path);
    }
    ~ChunkFile() {
        if (file_) std::fclose(file_);
    }
    void write(const ChunkSpec& chunk) {
        const std::vector<uint8_t> framed = testlog::lengthPrefixed(testlog::buildChunk(chunk));
        if (std::fwrite(framed.data(), 1, framed.size(), file_) != framed.size()) {
            throw std::runtime_error("cannot write " + path_);
        }
        size_ += framed.size();
    }
    uint64_t close() {
        const bool failed = std::fclose(file_) != 0;
        file_ = nullptr;
        if (failed) throw std::runtime_error("cannot write " + path_);
        return size_;
    }

private:
    std::string path_;
    std::FILE* file_;
    uint64_t size_ = 0;
};

// A clock that every message advances, so timestamps only grow.
struct Clock {
    uint64_t now = 5234567890;
    MessageSpec call(uint8_t methodType, uint64_t duration) {
        MessageSpec message(methodType);
        message.times(now, now + duration);
        now += duration + 40;
        return message;
    }
};

ChunkSpec setupChunk(const LargeLogShape& shape, Clock& clock) {
    ChunkSpec chunk;
    chunk.header(HeaderSpec{}
                     .tool("vek-net-run", "v2.19.0")
                     .backendText("VEK NPU backend 4.2.1 (linting profile)")
                     .epoch(1718031845123456)
                     .steady(clock.now));
    chunk.message(clock.call(testlog::kLibLoad, 18342)
                      .withEvents({EventSpec::u64("dlopen", 18120)}));
    chunk.message(clock.call(testlog::kContextCreate, 4210));
    chunk.message(clock.call(testlog::kCompose, 1530));
    for (uint32_t graph = 0; graph < shape.graphs; ++graph) {
        std::vector<EventSpec> events;
        if (graph == 0) {
            events.push_back(
                EventSpec::u64("Init Stats", 52310)
                    .id(kInitIdentifier)
                    .withChildren({EventSpec::u64("Load weights", 40122),
                                   EventSpec::u64("Allocate buffers", 12188)}));
        }
        events.push_back(EventSpec::u64("Compile graph", between(mix(graph, 7), 5000, 30000)));
        events.push_back(EventSpec::u64("Memory footprint", between(mix(graph, 8), 1 << 20, 1 << 24),
                                        kUnitBytes));
        chunk.message(clock.call(testlog::kFinalize, between(mix(graph, 9), 20000, 70000))
                          .graph(graphName(graph))
                          .withEvents(std::move(events)));
    }
    return chunk;
}

MessageSpec executionMessage(const LargeLogShape& shape, const OpNames& opNames, uint32_t graph,
                             uint32_t execution, Clock& clock) {
    std::vector<EventSpec> ops;
    ops.reserve(shape.opsPerExecution);
    uint64_t busy = 0;
    for (uint32_t op = 0; op < shape.opsPerExecution; ++op) {
        uint64_t duration = 0;
        ops.push_back(
            opRecord(opNames.names[op], mix(graph, execution, op), clock.now + busy, duration));
        busy += duration;
    }
    const uint64_t overhead = between(mix(graph, execution, 0, 1), 50, 400);
    EventSpec accelerator = EventSpec::u64("Accelerator", busy, kUnitMicroseconds,
                                           kAcceleratorIdentifier);
    accelerator.withChildren(std::move(ops));
    return clock.call(testlog::kExecute, busy + overhead)
        .graph(graphName(graph))
        .withEvents({std::move(accelerator), EventSpec::u64("Host overhead", overhead),
                     EventSpec::u64("Input tensor", 150528, kUnitBytes)});
}

ChunkSpec closingChunk(uint64_t executions, uint64_t executeTime, Clock& clock) {
    ChunkSpec chunk;
    chunk.message(clock.call(testlog::kNetRun, executeTime)
                      .withEvents({EventSpec::u64("count", executions, 4),
                                   EventSpec::u64("duration", executeTime)}));
    chunk.message(clock.call(testlog::kDeinit, 2150)
                      .withEvents({EventSpec::u64("Release resources", 2010)}));
    return chunk;
}

}  // namespace

uint64_t writeLargeLog(const LargeLogShape& shape, const std::string& path) {
    ChunkFile file(path);
    Clock clock;
    file.write(setupChunk(shape, clock));

    const OpNames opNames(shape.opsPerExecution);
    const uint32_t messagesPerChunk =
        shape.opsPerExecution >= kOpsPerChunk ? 1 : kOpsPerChunk / shape.opsPerExecution;
    const uint64_t firstExecution = clock.now;
    uint64_t executions = 0;
    ChunkSpec chunk;
    uint32_t inChunk = 0;
    for (uint32_t execution = 0; execution < shape.executionsPerGraph; ++execution) {
        for (uint32_t graph = 0; graph < shape.graphs; ++graph) {
            chunk.message(executionMessage(shape, opNames, graph, execution, clock));
            ++executions;
            if (++inChunk == messagesPerChunk) {
                file.write(chunk);
                chunk = ChunkSpec();
                inChunk = 0;
            }
        }
    }
    if (inChunk != 0) file.write(chunk);
    file.write(closingChunk(executions, clock.now - firstExecution, clock));
    return file.close();
}

}  // namespace bench
}  // namespace profiling
}  // namespace vek
