// The output writer the tools share: whole files or none, appends that copy
// the earlier file, gzip that any gzip reader takes back.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "OutputFile.h"
#include "support/LogWriter.h"

namespace vek {
namespace tools {
namespace {

using profiling::testlog::readFile;
using profiling::testlog::TempDir;

// What any gzip reader makes of a file: members are read one after another.
std::string gunzip(const std::string& path) {
    gzFile file = gzopen(path.c_str(), "rb");
    std::string text;
    char block[4096];
    int got = 0;
    while ((got = gzread(file, block, sizeof block)) > 0) text.append(block, static_cast<size_t>(got));
    gzclose(file);
    return text;
}

bool writeWhole(const std::string& path, OutputFile::Mode mode, const std::string& text) {
    std::string error;
    auto output = OutputFile::open(path, mode, error);
    if (!output) return false;
    output->stream() << text;
    return output->commit(error);
}

TEST(OutputFileTest, ReplacesAppendsAndCompressesWholeFiles) {
    TempDir dir;
    // Large enough to pass through the buffer more than once.
    const std::string big(3 * 1024 * 1024 + 17, 'x');
    struct Case {
        const char* name;
        OutputFile::Mode mode;
        std::string earlier;  // empty: no earlier file
        std::string written;
        std::string expected;  // as read back (gunzipped for .gz)
    };
    const std::vector<Case> cases = {
        {"plain.txt", OutputFile::Mode::kReplace, "old", "new\n", "new\n"},
        {"appended.csv", OutputFile::Mode::kAppend, "a,b\n", "c,d\n", "a,b\nc,d\n"},
        {"fresh.csv", OutputFile::Mode::kAppend, "", "c,d\n", "c,d\n"},
        {"big.json.gz", OutputFile::Mode::kReplace, "", big, big},
        {"empty.json.gz", OutputFile::Mode::kReplace, "", "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = dir.file(c.name);
        if (!c.earlier.empty()) std::ofstream(path) << c.earlier;
        ASSERT_TRUE(writeWhole(path, c.mode, c.written));
        const bool compressed = OutputFile::isCompressedName(path);
        EXPECT_EQ(compressed ? gunzip(path) : readFile(path), c.expected);
        if (compressed) {
            EXPECT_EQ(std::system(("gzip -t '" + path + "'").c_str()), 0);
        }
    }
    // A gzip file appended to holds two members that read as one text.
    const std::string csvGz = dir.file("rows.csv.gz");
    ASSERT_TRUE(writeWhole(csvGz, OutputFile::Mode::kAppend, "1\n"));
    ASSERT_TRUE(writeWhole(csvGz, OutputFile::Mode::kAppend, "2\n"));
    EXPECT_EQ(gunzip(csvGz), "1\n2\n");
}

TEST(OutputFileTest, DroppedOrRefusedOutputLeavesTheEarlierFile) {
    TempDir dir;
    const std::string path = dir.file("trace.json");
    std::ofstream(path) << "earlier";
    chmod(path.c_str(), 0640);
    {
        std::string error;
        auto output = OutputFile::open(path, OutputFile::Mode::kReplace, error);
        ASSERT_TRUE(output);
        output->stream() << "never committed";
    }
    EXPECT_EQ(readFile(path), "earlier");
    // A replaced file keeps its permissions.
    ASSERT_TRUE(writeWhole(path, OutputFile::Mode::kReplace, "later"));
    struct stat status {};
    stat(path.c_str(), &status);
    EXPECT_EQ(status.st_mode & 0777, 0640u);

    std::string error;
    EXPECT_FALSE(OutputFile::open(dir.file("missing/out.json"), OutputFile::Mode::kReplace, error));
    EXPECT_EQ(error, "No such file or directory");
    EXPECT_FALSE(OutputFile::open(dir.path(), OutputFile::Mode::kReplace, error));
    EXPECT_EQ(error, "Is a directory");
    // Nothing but the file itself is left in the directory.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()),
                            std::filesystem::directory_iterator()),
              1);
}

}  // namespace
}  // namespace tools
}  // namespace vek
