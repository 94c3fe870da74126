// Readers on threads, each over its own log, while other threads replace the logger and log: each
// reader must produce exactly what it produces alone. scripts/tsan.sh runs this suite under TSan.
#include <atomic>
#include <cstdarg>
#include <thread>

#include "logging/Log.h"
#include "reliability/Reliability.h"

namespace vek::profiling {
namespace {

std::atomic<uint64_t> delivered{0};

void countMessage(const char* format, uint32_t, uint64_t, va_list arguments) {
    char text[256];
    std::vsnprintf(text, sizeof text, format, arguments);
    delivered.fetch_add(1, std::memory_order_relaxed);
}

// The sample, then calls of this reader's own: graph, durations and object file (saved in its directory).
void writeLog(const TempDir& dir, int index) {
    const std::string sample = reliability::sampleLog();
    LogWriter log;
    ChunkSpec& chunk = log.rawBytes({sample.begin(), sample.end()}).chunk();
    for (uint64_t run = 0; run < 20; ++run) {
        const uint64_t start = 1000 + 100 * run, op = 10 + static_cast<uint64_t>(index) * 7 + run;
        chunk.message(MessageSpec(kExecute).graph("graph_" + std::to_string(index)).times(start, start + 60 + op).withEvents(
            {EventSpec::u64("Accelerator", 50 + op).withChildren({reliability::loggedOp("conv", op)}),
             EventSpec::object("Blob", {1, 2, 3}, dir.file("blob.bin"))}));
    }
    log.writeTo(dir.file("run.bin"));
}

// Trace, CSV and headers of both readers, with the load flag set (object files are written too).
std::string readerOutputs(const TempDir& dir, const std::string& tag) {
    const std::string log = dir.file("run.bin");
    VekProfileLogReaderChrometrace chrome(log, VisibilityLevel(10));
    VekProfileLogReader summary(log, VisibilityLevel(10));
    if (!chrome.loadLog(true) || !summary.loadLog(true)) return "load failed";
    if (!chrome.writeOutput(dir.file(tag + ".json")) || !summary.writeOutput(dir.file(tag + ".csv"))) return "output failed";
    return readFile(dir.file(tag + ".json")) + readFile(dir.file(tag + ".csv")) + chrome.printHeader() +
           summary.printHeader();
}

TEST(ReaderConcurrency, ReadersOnThreadsMatchTheirSingleThreadedRuns) {
    constexpr int kReaders = 4, kRounds = 3, kLoggers = 2;
    TempDir dirs[kReaders];
    std::string expected[kReaders];
    std::vector<std::string> results[kReaders];
    testing::internal::CaptureStdout();  // the readers print their summaries
    for (int i = 0; i < kReaders; ++i) {
        writeLog(dirs[i], i);
        expected[i] = readerOutputs(dirs[i], "alone");
    }
    std::atomic<int> readersRunning{kReaders};
    std::vector<std::thread> threads;
    for (int i = 0; i < kReaders; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < kRounds; ++round) {
                results[i].push_back(readerOutputs(dirs[i], "round" + std::to_string(round)));
            }
            readersRunning.fetch_sub(1);
        });
    }
    for (int i = 0; i < kLoggers; ++i) {
        threads.emplace_back([&, i] {
            for (int n = 0; readersRunning.load() > 0; ++n) {
                registerLogger(0x1000 + static_cast<uint64_t>(i * 16 + n % 16), &countMessage, n % 6);
                vekLog(kLogError, "logger thread %d message %d", i, n);
                vekLog(kLogDebug, "logger thread %d debug %d", i, n);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    testing::internal::GetCapturedStdout();
    registerLogger(0x1000, nullptr, 0);
    for (int i = 0; i < kReaders; ++i) EXPECT_EQ(results[i], std::vector<std::string>(kRounds, expected[i])) << i;
    EXPECT_GT(delivered.load(), 0u);
}

}  // namespace
}  // namespace vek::profiling
