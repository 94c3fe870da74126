// The kernel fence of the command line, tried in a child process (it cannot
// be lifted once raised).
#include "WriteConfinement.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/LogWriter.h"

namespace vek {
namespace tools {
namespace {

using profiling::testlog::TempDir;

bool canWrite(const std::string& path) {
    std::ofstream file(path);
    return file.is_open() && (file << "x") && (file.close(), !file.fail());
}

TEST(WriteConfinement, AllowsWritesOnlyWhereItWasToldTo) {
    TempDir dir;
    std::filesystem::create_directories(dir.file("allowed/sub"));
    std::filesystem::create_directories(dir.file("denied"));
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::string error;
        const Confinement result = confineWritesTo({dir.file("allowed"), "/dev/null"}, error);
        if (result == Confinement::kUnavailable) _exit(77);
        // Bit by bit: which writes went through.
        const int outcome = (result == Confinement::kConfined ? 1 : 0) |
                            (canWrite(dir.file("allowed/sub/a.txt")) ? 2 : 0) |
                            (canWrite("/dev/null") ? 4 : 0) |
                            (canWrite(dir.file("denied/b.txt")) ? 8 : 0) |
                            (canWrite(dir.file("c.txt")) ? 16 : 0) |
                            (std::rename(dir.file("allowed/sub/a.txt").c_str(),
                                         dir.file("denied/a.txt").c_str()) == 0 ? 32 : 0);
        _exit(outcome);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "this kernel has no Landlock";
    EXPECT_EQ(WEXITSTATUS(status), 1 | 2 | 4);
    EXPECT_TRUE(std::filesystem::is_empty(dir.file("denied")));
}

}  // namespace
}  // namespace tools
}  // namespace vek
