// The peak resident memory of loading logs must not creep up.
#include "reliability/Reliability.h"

namespace vek::profiling {
namespace {

// Not LogWriter::writeTo: the logs it writes are loaded once more at the end of the run.
template <typename Bytes>
void writeBytes(const std::string& path, const Bytes& bytes, size_t copies = 1) {
    std::ofstream out(path, std::ios::binary);
    for (size_t copy = 0; copy < copies; ++copy) out.write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

// A full load's peak (scripts/measure-memory.sh measures the viewer's on larger logs).
TEST(MemoryFootprint, LoadingALargeLogStaysWithinASmallMultipleOfIt) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers' own bookkeeping would be measured";
#endif
    const std::string sample = reliability::sampleLog();  // repeated to 48 MB, as in a long run
    const size_t copies = ((size_t{48} << 20) + sample.size() - 1) / sample.size();
    TempDir dir;
    writeBytes(dir.file("large.log"), sample, copies);
    const int64_t growth = reliability::peakGrowth([&] {
        VekProfileLogReaderChrometrace reader(dir.file("large.log"), VisibilityLevel(127));
        ASSERT_TRUE(reader.loadLog(false));
    });
    if (growth < 0) GTEST_SKIP() << "the peak resident memory cannot be reset here";
    const double multiple = static_cast<double>(growth) / static_cast<double>(copies * sample.size());
    EXPECT_LT(multiple, 2.0) << growth << " bytes";  // about 1.25 for a log of the sample's shape
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
            ASSERT_TRUE(setLoadScope(&reader, LoadScope::SummariesOnly) && reader.loadLog(false));
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
