#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "logging/LogLevels.h"
#include "reader/VekProfileLogReader.h"
#include "support/LogCapture.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using testlog::LogCapture;
using testlog::readFile;
using testlog::TempDir;

namespace fs = std::filesystem;

ProfileEvent objectEvent(std::string fileName, std::vector<uint8_t> bytes) {
    ProfileEvent event;
    event.name = "object";
    event.unit = kUnitObject;
    event.detail = std::move(fileName);
    event.bytes = std::move(bytes);
    return event;
}

void writeText(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::vector<std::string> fileNames(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(directory)) {
        if (entry.is_regular_file()) names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

class ObjectEventFileTest : public testing::Test {
protected:
    TempDir dir;
    VekProfileLogReader reader{"log.bin", VisibilityLevel(5)};
};

TEST_F(ObjectEventFileTest, NeverOverwritesAndCountsFromOne) {
    const ProfileEvent event = objectEvent(dir.file("x.bin"), {'a', 'b'});
    for (int i = 0; i < 3; ++i) reader.writeObjectEventFile(event);
    EXPECT_EQ(fileNames(dir.path()), (std::vector<std::string>{"x.bin", "x_1.bin", "x_2.bin"}));
    for (const char* name : {"x.bin", "x_1.bin", "x_2.bin"}) {
        EXPECT_EQ(readFile(dir.file(name)), "ab") << name;
    }
}

TEST_F(ObjectEventFileTest, TakesTheFirstFreeName) {
    writeText(dir.file("x.bin"), "old");
    writeText(dir.file("x_2.bin"), "old 2");
    reader.writeObjectEventFile(objectEvent(dir.file("x.bin"), {'n'}));
    EXPECT_EQ(readFile(dir.file("x_1.bin")), "n");
    EXPECT_EQ(readFile(dir.file("x.bin")), "old");
    EXPECT_EQ(readFile(dir.file("x_2.bin")), "old 2");
    reader.writeObjectEventFile(objectEvent(dir.file("x.bin"), {'m'}));
    EXPECT_EQ(readFile(dir.file("x_3.bin")), "m");
}

TEST_F(ObjectEventFileTest, CounterGoesBeforeTheLastDotOfTheFileName) {
    writeText(dir.file("a.b.c"), "");
    reader.writeObjectEventFile(objectEvent(dir.file("a.b.c"), {'1'}));
    EXPECT_EQ(readFile(dir.file("a.b_1.c")), "1");

    // Without an extension the counter goes at the end.
    writeText(dir.file("plain"), "");
    reader.writeObjectEventFile(objectEvent(dir.file("plain"), {'2'}));
    EXPECT_EQ(readFile(dir.file("plain_1")), "2");

    // A dot in a directory name is not an extension.
    fs::create_directory(dir.file("dir.v2"));
    writeText(dir.file("dir.v2/file"), "");
    reader.writeObjectEventFile(objectEvent(dir.file("dir.v2/file"), {'3'}));
    EXPECT_EQ(readFile(dir.file("dir.v2/file_1")), "3");
}

TEST_F(ObjectEventFileTest, EmptyDetailWritesNothing) {
    LogCapture capture;
    reader.writeObjectEventFile(objectEvent("", {'x'}));
    EXPECT_TRUE(fileNames(dir.path()).empty());
    EXPECT_TRUE(capture.messages().empty());
}

TEST_F(ObjectEventFileTest, EmptyBytesGiveAnEmptyFile) {
    reader.writeObjectEventFile(objectEvent(dir.file("empty.dat"), {}));
    ASSERT_TRUE(fs::exists(dir.file("empty.dat")));
    EXPECT_EQ(fs::file_size(dir.file("empty.dat")), 0u);
}

TEST_F(ObjectEventFileTest, ContentIsSavedByteForByte) {
    const std::vector<uint8_t> bytes = {0x00, 0x0A, 0x0D, 0x0A, 0xFF, 0x1A, 0x00, 'z'};
    reader.writeObjectEventFile(objectEvent(dir.file("raw.bin"), bytes));
    const std::string content = readFile(dir.file("raw.bin"));
    EXPECT_EQ(std::vector<uint8_t>(content.begin(), content.end()), bytes);
}

TEST_F(ObjectEventFileTest, UnopenableNameIsReportedAndTheCallReturns) {
    LogCapture capture;
    const std::string name = dir.file("missing/obj.bin");
    reader.writeObjectEventFile(objectEvent(name, {'x'}));
    EXPECT_TRUE(capture.contains("Invalid output fileName: [" + name + "]", kLogError));
    EXPECT_EQ(capture.messages().size(), 1u);
    EXPECT_FALSE(fs::exists(dir.file("missing")));
}

}  // namespace
}  // namespace profiling
}  // namespace vek
