// The peak resident memory of loading logs: the command-line host's, as a
// multiple of a large log's size (scripts/measure-memory.sh measures the same
// on larger logs; this keeps the multiple from creeping up), and a
// summaries-only load's, which must not grow with the executions.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "reliability/Reliability.h"

namespace vek::profiling {
namespace {

using namespace testlog;

// Writes the bytes as they are: logs written through LogWriter::writeTo are
// loaded once more at the end of the run, which these large ones would slow.
void writeBytes(const std::string& path, const std::string& bytes, size_t copies = 1) {
    std::ofstream out(path, std::ios::binary);
    for (size_t copy = 0; copy < copies; ++copy) out << bytes;
}

// Peak resident memory of one `vek-profile-viewer -m header LOG` run, in bytes.
int64_t viewerPeak(const std::string& log) {
    const char* const argv[] = {VEK_PROFILE_VIEWER_TOOL, "-m", "header", log.c_str(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, const_cast<char* const*>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    rusage usage{};
    if (spawned != 0 || wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        return -1;
    }
    return static_cast<int64_t>(usage.ru_maxrss) * 1024;
}

TEST(MemoryFootprint, LoadingALargeLogStaysWithinASmallMultipleOfIt) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers' own bookkeeping would be measured";
#endif
    const std::string sample = readFile(std::string(VEK_SAMPLE_DIR) + "/linting_sample.log");
    // Every graph executed again and again, as in a long run, to 48 MB.
    const size_t copies = ((size_t{48} << 20) + sample.size() - 1) / sample.size();
    TempDir dir;
    writeBytes(dir.file("small.log"), sample);
    writeBytes(dir.file("large.log"), sample, copies);
    const int64_t footprint = viewerPeak(dir.file("small.log"));
    const int64_t peak = viewerPeak(dir.file("large.log"));
    ASSERT_GT(footprint, 0);
    ASSERT_GT(peak, 0);
    // About 1.25 times the log's size for a log of the sample's shape; a
    // change past twice needs a look.
    const double multiple = static_cast<double>(peak - footprint) / static_cast<double>(copies * sample.size());
    RecordProperty("load_multiple", std::to_string(multiple));
    EXPECT_LT(multiple, 2.0) << "peak " << peak << " bytes";
}

// A log of `executions` executions of two graphs, ten ops each, in chunks of
// twenty, with durations that keep changing which call is the longest and
// the shortest.
void writeExecutions(const std::string& path, uint32_t executions) {
    LogWriter log;
    ChunkSpec* chunk = &log.chunk();
    uint64_t random = 12345;
    for (uint32_t i = 0; i < executions; ++i) {
        if (i % 20 == 19) chunk = &log.chunk();
        random = random * 6364136223846793005ull + 1442695040888963407ull;
        std::vector<EventSpec> ops;
        for (uint32_t op = 0; op < 10; ++op) {
            ops.push_back(EventSpec::u64("op " + std::to_string(op), random >> 54, 1, 404)
                              .withChildren({EventSpec::u64("wait", op, 1, 5001), EventSpec::u64("resources", 3, 6, 5004)}));
        }
        chunk->message(MessageSpec(kExecute)
                           .graph(i % 2 == 0 ? "graph_0" : "graph_1")
                           .times(i * 1000, i * 1000 + (random >> 40) % 900)
                           .withEvents({EventSpec::u64("Accelerator", 1).withChildren(std::move(ops))}));
    }
    const std::vector<uint8_t> bytes = log.bytes();
    writeBytes(path, std::string(bytes.begin(), bytes.end()));
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
}  // namespace vek::profiling
