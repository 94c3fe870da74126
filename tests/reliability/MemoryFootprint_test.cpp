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
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "LogJsonEncoder.h"
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

}  // namespace
}  // namespace profiling
}  // namespace vek
