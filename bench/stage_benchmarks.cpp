// Micro-benchmarks of the reader's stages on one generated linting log:
// verification, loading into the model (whole or summaries only),
// statistics, trace build and write (exact and portable), text summary and
// CSV export.
//
//   vek-bench-stages [--log=LOG] [benchmark options]
// Without --log a 10 MB log (2 graphs x 54 executions x 200 ops) is generated
// in a scratch directory first.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "LargeLog.h"
#include "chrometrace/PortableTraceWriter.h"
#include "chrometrace/TraceEventBuilder.h"
#include "log/FlatBufferReaderUtil.h"
#include "reader/VekProfileLogReaderChrometrace.h"
#include "support/LogWriter.h"

namespace {

using vek::profiling::FlatBufferReaderUtil;
using vek::profiling::VekProfileLogReader;
using vek::profiling::VekProfileLogReaderChrometrace;
using vek::profiling::VisibilityLevel;

constexpr auto kEveryMessage = static_cast<VisibilityLevel>(127);

std::string gLogPath;

// The log's chunks, read once, for the verifier.
std::vector<std::vector<uint8_t>> readChunks(const std::string& path) {
    const std::string bytes = vek::profiling::testlog::readFile(path);
    std::vector<std::vector<uint8_t>> chunks;
    size_t at = 0;
    while (at + 4 <= bytes.size()) {
        uint32_t length = 0;
        std::memcpy(&length, bytes.data() + at, sizeof length);
        at += 4;
        if (length > bytes.size() - at) break;
        chunks.emplace_back(bytes.begin() + static_cast<long>(at),
                            bytes.begin() + static_cast<long>(at + length));
        at += length;
    }
    return chunks;
}

template <typename Reader>
std::unique_ptr<Reader> loadedReader() {
    auto reader = std::make_unique<Reader>(gLogPath, kEveryMessage);
    if (!reader->loadLog(false)) throw std::runtime_error("cannot load " + gLogPath);
    return reader;
}

// Points standard output at /dev/null while alive, for the report stages
// that print.
class QuietStdout {
public:
    QuietStdout() {
        std::cout.flush();
        saved_ = dup(STDOUT_FILENO);
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, STDOUT_FILENO);
        close(null);
    }
    ~QuietStdout() {
        std::cout.flush();
        std::fflush(stdout);
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
    }

private:
    int saved_;
};

void setBytes(benchmark::State& state) {
    std::FILE* file = std::fopen(gLogPath.c_str(), "rb");
    std::fseek(file, 0, SEEK_END);
    const long size = std::ftell(file);
    std::fclose(file);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * size);
}

void BM_Verify(benchmark::State& state) {
    const auto chunks = readChunks(gLogPath);
    for (auto _ : state) {
        for (const auto& chunk : chunks) {
            benchmark::DoNotOptimize(FlatBufferReaderUtil::verifyChunk(chunk.data(), chunk.size()));
        }
    }
    setBytes(state);
}
BENCHMARK(BM_Verify)->Unit(benchmark::kMillisecond);

// loadLog reads the file, fills the model and runs the statistics step.
void BM_LoadLog(benchmark::State& state) {
    for (auto _ : state) {
        auto reader = std::make_unique<VekProfileLogReaderChrometrace>(gLogPath, kEveryMessage);
        benchmark::DoNotOptimize(reader->loadLog(false));
        state.PauseTiming();  // freeing the model is not loading
        reader.reset();
        state.ResumeTiming();
    }
    setBytes(state);
}
BENCHMARK(BM_LoadLog)->Unit(benchmark::kMillisecond);

// The same with only the per-graph summaries kept, as the trace mode loads.
void BM_LoadSummariesOnly(benchmark::State& state) {
    for (auto _ : state) {
        auto reader = std::make_unique<VekProfileLogReaderChrometrace>(gLogPath, kEveryMessage);
        vek::profiling::setLoadScope(reader.get(), vek::profiling::LoadScope::SummariesOnly);
        benchmark::DoNotOptimize(reader->loadLog(false));
        state.PauseTiming();
        reader.reset();
        state.ResumeTiming();
    }
    setBytes(state);
}
BENCHMARK(BM_LoadSummariesOnly)->Unit(benchmark::kMillisecond);

void BM_Statistics(benchmark::State& state) {
    auto reader = loadedReader<VekProfileLogReaderChrometrace>();
    for (auto _ : state) {
        reader->buildStatistics();
    }
    setBytes(state);
}
BENCHMARK(BM_Statistics)->Unit(benchmark::kMillisecond);

void BM_TraceBuildAndWrite(benchmark::State& state) {
    auto reader = loadedReader<VekProfileLogReaderChrometrace>();
    for (auto _ : state) {
        rapidjson::Document document;
        document.SetObject();
        benchmark::DoNotOptimize(vek::profiling::buildTraceDocument(*reader, document));
        rapidjson::StringBuffer buffer;
        rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
        document.Accept(writer);
        benchmark::DoNotOptimize(buffer.GetSize());
    }
}
BENCHMARK(BM_TraceBuildAndWrite)->Unit(benchmark::kMillisecond);

// The portable trace, written as it is built into memory as well.
void BM_PortableTraceWrite(benchmark::State& state) {
    auto reader = loadedReader<VekProfileLogReaderChrometrace>();
    for (auto _ : state) {
        std::ostringstream out;
        benchmark::DoNotOptimize(vek::profiling::writePortableTrace(*reader, out));
        benchmark::DoNotOptimize(out.tellp());
    }
}
BENCHMARK(BM_PortableTraceWrite)->Unit(benchmark::kMillisecond);

// The short summary that the main job prints beside the trace.
void BM_ShortSummary(benchmark::State& state) {
    auto reader = loadedReader<VekProfileLogReaderChrometrace>();
    for (auto _ : state) {
        std::ostringstream out;
        reader->printHeaderSection(out);
        reader->printLeadingSections(out);
        reader->printExecuteAverage(out);
        benchmark::DoNotOptimize(out.tellp());
    }
}
BENCHMARK(BM_ShortSummary)->Unit(benchmark::kMillisecond);

// The base reader's output without a CSV path: the full text summary.
void BM_TextSummary(benchmark::State& state) {
    auto reader = loadedReader<VekProfileLogReader>();
    QuietStdout quiet;
    for (auto _ : state) {
        benchmark::DoNotOptimize(reader->writeOutput(std::string()));
    }
}
BENCHMARK(BM_TextSummary)->Unit(benchmark::kMillisecond);

void BM_CsvExport(benchmark::State& state) {
    auto reader = loadedReader<VekProfileLogReader>();
    for (auto _ : state) {
        std::ostringstream out;
        reader->writeCsvExport(out);
        benchmark::DoNotOptimize(out.tellp());
    }
    setBytes(state);
}
BENCHMARK(BM_CsvExport)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    std::vector<char*> arguments;
    for (int i = 0; i < argc; ++i) {
        if (std::strncmp(argv[i], "--log=", 6) == 0) {
            gLogPath = argv[i] + 6;
        } else {
            arguments.push_back(argv[i]);
        }
    }
    std::unique_ptr<vek::profiling::testlog::TempDir> scratch;
    if (gLogPath.empty()) {
        scratch = std::make_unique<vek::profiling::testlog::TempDir>();
        gLogPath = scratch->file("bench.log");
        vek::profiling::bench::writeLargeLog({2, 54, 200}, gLogPath);
    }
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
