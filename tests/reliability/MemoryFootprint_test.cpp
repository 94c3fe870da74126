// The peak resident memory of the command-line host loading a large log, as a
// multiple of the log's size. scripts/measure-memory.sh measures the same on
// larger logs; this keeps the multiple from creeping up.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "LogJsonEncoder.h"
#include "PeakMemory.h"
#include "reader/VekProfileLogReaderChrometrace.h"
#include "support/LogWriter.h"
#include "support/MemoryFile.h"

namespace vek {
namespace profiling {
namespace {

using testlog::MemoryFile;
using testlog::readFile;
using testlog::TempDir;

// Loading a log of the linting sample's shape grows the peak by about 1.25
// times the log's size; a change past this bound needs a look.
constexpr double kLoadMultipleBound = 2.0;
constexpr size_t kLogBytes = size_t{48} << 20;

// Peak resident memory of one `vek-profile-viewer -m header LOG` run, in bytes.
int64_t viewerPeak(const std::string& log) {
    const std::string tool = VEK_PROFILE_VIEWER_TOOL;
    std::vector<std::string> arguments = {tool, "-m", "header", log};
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, tool.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) return -1;
    int status = 0;
    rusage usage{};
    if (wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        return -1;
    }
    return static_cast<int64_t>(usage.ru_maxrss) * 1024;
}

TEST(MemoryFootprint, LoadingALargeLogStaysWithinASmallMultipleOfIt) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers' own bookkeeping would be measured";
#endif
    const MemoryFile json(readFile(std::string(VEK_SOURCE_DIR) + "/examples/linting_sample.json"));
    std::ostringstream log;
    ASSERT_TRUE(encodeJson(json.get(), log).ok());
    const std::string sample = log.str();
    TempDir dir;
    size_t written = 0;
    {
        std::ofstream small(dir.file("small.log"), std::ios::binary);
        small << sample;
        // Every graph executed again and again, as in a long profiling run.
        std::ofstream large(dir.file("large.log"), std::ios::binary);
        for (; written < kLogBytes; written += sample.size()) large << sample;
    }
    const int64_t footprint = viewerPeak(dir.file("small.log"));
    const int64_t peak = viewerPeak(dir.file("large.log"));
    ASSERT_GT(footprint, 0);
    ASSERT_GT(peak, 0);
    const double multiple = static_cast<double>(peak - footprint) / static_cast<double>(written);
    RecordProperty("load_multiple", std::to_string(multiple));
    EXPECT_LT(multiple, kLoadMultipleBound) << "peak " << peak << " bytes for a log of " << written;
}

// A log of `executions` executions of two graphs, ten ops each, in chunks of
// twenty, with durations that keep changing which call is the longest and
// the shortest.
void writeExecutions(const std::string& path, uint32_t executions) {
    testlog::LogWriter log;
    testlog::ChunkSpec* chunk = &log.chunk();
    uint64_t random = 12345;
    for (uint32_t i = 0; i < executions; ++i) {
        if (i % 20 == 19) chunk = &log.chunk();
        random = random * 6364136223846793005ull + 1442695040888963407ull;
        std::vector<testlog::EventSpec> ops;
        for (uint32_t op = 0; op < 10; ++op) {
            ops.push_back(testlog::EventSpec::u64("op " + std::to_string(op), random >> 54, 1, 404)
                              .withChildren({testlog::EventSpec::u64("wait", op, 1, 5001),
                                             testlog::EventSpec::u64("resources", 3, 6, 5004)}));
        }
        chunk->message(testlog::MessageSpec(testlog::kExecute)
                           .graph(i % 2 == 0 ? "graph_0" : "graph_1")
                           .times(i * 1000, i * 1000 + (random >> 40) % 900)
                           .withEvents({testlog::EventSpec::u64("Accelerator", 1).withChildren(
                               std::move(ops))}));
    }
    // Written as they are: the logs written through writeTo are compared
    // once more at the end of the run.
    const std::vector<uint8_t> bytes = log.bytes();
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

// A summaries-only load keeps none of the calls, so its peak memory must not
// grow with their number: of two logs alike but for ten times as many
// executions, the larger may raise the peak by hardly more than the smaller.
// (A full load grows by more than the difference of their sizes.)
TEST(MemoryFootprint, SummariesOnlyLoadDoesNotGrowWithTheExecutions) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers' own bookkeeping would be measured";
#endif
    TempDir dir;
    writeExecutions(dir.file("small.log"), 400);
    writeExecutions(dir.file("large.log"), 4000);
    const auto growth = [](const std::string& path) {
        return reliability::peakGrowth([&path] {
            VekProfileLogReaderChrometrace reader(path, static_cast<VisibilityLevel>(127));
            ASSERT_TRUE(setLoadScope(&reader, LoadScope::SummariesOnly));
            ASSERT_TRUE(reader.loadLog(false));
        });
    };
    const int64_t small = growth(dir.file("small.log"));
    const int64_t large = growth(dir.file("large.log"));
    if (small < 0 || large < 0) GTEST_SKIP() << "the peak resident memory cannot be reset here";
    const auto added = static_cast<int64_t>(std::filesystem::file_size(dir.file("large.log")) -
                                            std::filesystem::file_size(dir.file("small.log")));
    RecordProperty("peak_growth_small", std::to_string(small));
    RecordProperty("peak_growth_large", std::to_string(large));
    EXPECT_LT(large - small, added / 16) << "the log grew by " << added << " bytes";
}

}  // namespace
}  // namespace profiling
}  // namespace vek
