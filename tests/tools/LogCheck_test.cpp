// vek-profile-log check and trim, run as processes.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using namespace testlog;

const std::string kSampleLog = std::string(VEK_SAMPLE_DIR) + "/linting_sample.log";

struct ToolRun {
    int status;
    std::string out;
    std::string err;
};

ToolRun runTool(const TempDir& dir, const std::string& arguments) {
    const std::string command = "cd '" + dir.path() + "' && '" + VEK_PROFILE_LOG_TOOL + "' " +
                                arguments + " > stdout.txt 2> stderr.txt";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(dir.file("stdout.txt")),
            readFile(dir.file("stderr.txt"))};
}

class LogCheckTest : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string sample = readFile(kSampleLog);
        LogWriter().rawBytes({sample.begin(), sample.end()}).writeTo(dir_.file("whole.log"));
        // Cut 100 bytes into the last chunk, which starts at byte 8472.
        LogWriter().rawBytes({sample.begin(), sample.begin() + 8580}).writeTo(dir_.file("cut.log"));
        LogWriter().rawBytes({'{', '"', 'a', '"', ':', '1', '}'}).writeTo(dir_.file("trace.json"));
        LogWriter().writeTo(dir_.file("empty.log"));
        std::filesystem::create_directory(dir_.file("dir"));
    }
    TempDir dir_;
};

TEST_F(LogCheckTest, CheckNamesEachProblemOrSaysTheLogIsWhole) {
    const struct {
        const char* file;
        int status;
        const char* out;
        const char* err;
    } cases[] = {
        {"whole.log", 0,
         "whole.log: 3 chunks and 13 messages, 12556 bytes: every chunk is whole and valid\n", ""},
        {"cut.log", 1,
         "cut.log: chunk 2 at byte offset 8472: cut short: its length field announces 4080 bytes, "
         "only 104 are there (2 chunks and 9 messages before it)\n"
         "cut.log: 1 problem; the first 2 chunks and 9 messages (8472 bytes) are whole and valid\n",
         ""},
        {"trace.json", 1,
         "trace.json: not a profile log: it starts like JSON text, not with a chunk length\n", ""},
        {"empty.log", 1, "", "vek-profile-log: empty.log: is empty, not a profile log\n"},
        {"dir", 1, "", "vek-profile-log: dir: is a directory, not a profile log\n"},
        {"absent.log", 1, "", "vek-profile-log: absent.log: no such file\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        const ToolRun run = runTool(dir_, std::string("check ") + c.file);
        EXPECT_EQ(run.status, c.status);
        EXPECT_EQ(run.out, c.out);
        EXPECT_EQ(run.err, c.err);
    }
}

TEST_F(LogCheckTest, TrimKeepsTheWholeChunksOrRefusesAndWritesNothing) {
    ToolRun run = runTool(dir_, "trim cut.log -o trimmed.log");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err,
              "vek-profile-log: cut.log: kept the first 2 chunks and 9 messages (8472 bytes); "
              "dropped from chunk 2 at byte offset 8472: cut short: its length field announces "
              "4080 bytes, only 104 are there\n");
    EXPECT_EQ(readFile(dir_.file("trimmed.log")), readFile(kSampleLog).substr(0, 8472));
    EXPECT_EQ(runTool(dir_, "check trimmed.log").status, 0);

    EXPECT_EQ(runTool(dir_, "trim whole.log -o copy.log").status, 0);
    EXPECT_EQ(readFile(dir_.file("copy.log")), readFile(kSampleLog));

    for (const char* refused : {"trim trace.json -o out.log", "trim cut.log -o cut.log"}) {
        SCOPED_TRACE(refused);
        EXPECT_EQ(runTool(dir_, refused).status, 1);
        EXPECT_FALSE(std::filesystem::exists(dir_.file("out.log")));
    }
    EXPECT_EQ(readFile(dir_.file("cut.log")).size(), 8580u);
    EXPECT_EQ(runTool(dir_, "trim cut.log").status, 2);
}

}  // namespace
}  // namespace profiling
}  // namespace vek
