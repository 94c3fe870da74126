// The peak resident memory of loading logs must not creep up (scripts/measure-memory.sh measures larger logs).
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include "reliability/Reliability.h"

namespace vek::profiling {
namespace {

// Not LogWriter::writeTo: the logs it writes are loaded once more at the end of the run.
template <typename Bytes>
void writeBytes(const std::string& path, const Bytes& bytes, size_t copies = 1) {
    std::ofstream out(path, std::ios::binary);
    for (size_t copy = 0; copy < copies; ++copy) out.write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

// Of one `vek-profile-viewer -m header LOG` run.
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
    const std::string sample = reliability::sampleLog();  // repeated to 48 MB, as in a long run
    const size_t copies = ((size_t{48} << 20) + sample.size() - 1) / sample.size();
    TempDir dir;
    writeBytes(dir.file("small.log"), sample);
    writeBytes(dir.file("large.log"), sample, copies);
    const int64_t footprint = viewerPeak(dir.file("small.log"));
    const int64_t peak = viewerPeak(dir.file("large.log"));
    ASSERT_GT(footprint, 0);
    ASSERT_GT(peak, 0);
    // About 1.25 times the log's size for a log of the sample's shape.
    const double multiple = static_cast<double>(peak - footprint) / static_cast<double>(copies * sample.size());
    EXPECT_LT(multiple, 2.0) << "peak " << peak << " bytes";
}

// Two graphs of ten ops, in chunks of 20, with durations that keep changing the longest and shortest call.
void writeExecutions(const std::string& path, uint32_t executions) {
    LogWriter log;
    ChunkSpec* chunk = &log.chunk();
    uint64_t random = 12345;
    for (uint32_t i = 0; i < executions; ++i) {
        if (i % 20 == 19) chunk = &log.chunk();
        random = random * 6364136223846793005ull + 1442695040888963407ull;
        std::vector<EventSpec> ops;
        for (int op = 0; op < 10; ++op) ops.push_back(reliability::loggedOp("op " + std::to_string(op), random >> 54));
        chunk->message(MessageSpec(kExecute)
                           .graph(i % 2 == 0 ? "graph_0" : "graph_1")
                           .times(i * 1000, i * 1000 + (random >> 40) % 900)
                           .withEvents({EventSpec::u64("Accelerator", 1).withChildren(std::move(ops))}));
    }
    writeBytes(path, log.bytes());
}

// A summaries-only load keeps none of the calls: ten times the executions must hardly raise its peak
// (a full load's grows by more than the logs' difference).
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
    EXPECT_LT(large - small, added / 16) << "the log grew by " << added << " bytes";
}

}  // namespace
}  // namespace vek::profiling
