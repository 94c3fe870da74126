// What the tools share: the output writer (whole files or none) and the kernel fence of the command line.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "OutputFile.h"
#include "WriteConfinement.h"
#include "support/LogWriter.h"

namespace vek::tools {
namespace {

using namespace profiling::testlog;
using Mode = OutputFile::Mode;

bool writeWhole(const std::string& path, Mode mode, const std::string& text) {
    std::string error;
    auto output = OutputFile::open(path, mode, error);
    if (output) output->stream() << text;
    return output && output->commit(error);
}

// Appends copy the earlier file; gzip members read back as one text.
TEST(OutputFileTest, ReplacesAppendsAndCompressesWholeFiles) {
    TempDir dir;
    const std::string big(3 * 1024 * 1024 + 17, 'x');  // through the buffer more than once
    const struct {
        const char* name;
        std::vector<std::pair<Mode, std::string>> writes;  // in turn
        std::string expected;                              // as gzip -d reads it back
    } cases[] = {
        {"plain.txt", {{Mode::kReplace, "old"}, {Mode::kReplace, "new\n"}}, "new\n"},
        {"appended.csv", {{Mode::kReplace, "a,b\n"}, {Mode::kAppend, "c,d\n"}}, "a,b\nc,d\n"},
        {"fresh.csv", {{Mode::kAppend, "c,d\n"}}, "c,d\n"},
        {"big.json.gz", {{Mode::kReplace, "old"}, {Mode::kReplace, big}}, big},
        {"empty.json.gz", {{Mode::kReplace, ""}}, ""},
        {"rows.csv.gz", {{Mode::kAppend, "1\n"}, {Mode::kAppend, "2\n"}}, "1\n2\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = dir.file(c.name);
        for (const auto& [mode, text] : c.writes) ASSERT_TRUE(writeWhole(path, mode, text));
        ASSERT_EQ(std::system(("gzip -dcf '" + path + "' > '" + path + ".txt'").c_str()), 0);
        EXPECT_EQ(readFile(path + ".txt"), c.expected);
        EXPECT_EQ(OutputFile::isCompressedName(path), readFile(path) != c.expected);
    }
}

// An output dropped before commit leaves the earlier file; one refused leaves nothing.
TEST(OutputFileTest, DroppedOrRefusedOutputLeavesTheEarlierFile) {
    TempDir dir;
    const std::string path = dir.file("trace.json");
    std::ofstream(path) << "earlier";
    chmod(path.c_str(), 0640);
    std::string error;
    OutputFile::open(path, Mode::kReplace, error)->stream() << "never committed";
    EXPECT_EQ(readFile(path), "earlier");
    ASSERT_TRUE(writeWhole(path, Mode::kReplace, "later"));
    struct stat status {};
    EXPECT_TRUE(stat(path.c_str(), &status) == 0 && (status.st_mode & 0777) == 0640);  // kept
    for (const auto& [output, message] : {std::pair(dir.file("missing/out.json"), "No such file or directory"),
                                          std::pair(dir.path(), "Is a directory")}) {
        EXPECT_FALSE(OutputFile::open(output, Mode::kReplace, error));
        EXPECT_EQ(error, message);
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
}

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
    if (child == 0) {  // exits with a bit for each write that went through
        std::string error;
        const Confinement result = confineWritesTo({dir.file("allowed"), "/dev/null"}, error);
        if (result == Confinement::kUnavailable) _exit(77);
        _exit((result == Confinement::kConfined ? 1 : 0) | (canWrite(dir.file("allowed/sub/a.txt")) ? 2 : 0) |
              (canWrite("/dev/null") ? 4 : 0) | (canWrite(dir.file("denied/b.txt")) ? 8 : 0) |
              (canWrite(dir.file("c.txt")) ? 16 : 0) |
              (std::rename(dir.file("allowed/sub/a.txt").c_str(), dir.file("denied/a.txt").c_str()) == 0 ? 32 : 0));
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "this kernel has no Landlock";
    EXPECT_EQ(WEXITSTATUS(status), 1 | 2 | 4);
    EXPECT_TRUE(std::filesystem::is_empty(dir.file("denied")));
}

}  // namespace
}  // namespace vek::tools
