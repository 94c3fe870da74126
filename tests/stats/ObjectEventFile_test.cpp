#include <gtest/gtest.h>

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
namespace fs = std::filesystem;

ProfileEvent objectEvent(std::string fileName, std::vector<uint8_t> bytes) {
    ProfileEvent event;
    event.unit = kUnitObject;
    event.detail = std::move(fileName);
    event.bytes = std::move(bytes);
    return event;
}

class ObjectEventFileTest : public testing::Test {
protected:
    void save(const std::string& name, const std::string& bytes) {
        reader.writeObjectEventFile(
            objectEvent(name.empty() ? name : dir.file(name), {bytes.begin(), bytes.end()}));
    }
    void existing(const std::string& name) { std::ofstream(dir.file(name)) << "old"; }

    testlog::TempDir dir;
    VekProfileLogReader reader{"log.bin", VisibilityLevel(5)};
};

// Repeated saves of one event (x.bin, x_1.bin, ...) show in the text summary's tests.
TEST_F(ObjectEventFileTest, NeverOverwritesAndSavesTheBytesUnderTheFirstFreeName) {
    fs::create_directory(dir.file("dir.v2"));
    for (const char* name : {"y.bin", "y_2.bin", "a.b.c", "plain", "dir.v2/file"}) existing(name);
    const std::string raw("\x00\x0A\x0D\x0A\xFF\x1A\x00z", 8);
    const std::string nul("z.bin\0tail", 10);
    const struct {
        std::string name;
        std::string bytes;
        const char* savedAs;
    } steps[] = {
        {"y.bin", "n", "y_1.bin"},
        {"y.bin", "m", "y_3.bin"},  // y_2.bin is taken
        // The name ends at a NUL byte, as the file system reads it; the
        // search for a free name must not stall on candidates that all look taken.
        {nul, "a", "z.bin"},
        {nul, "b", "z_1.bin"},
        // The counter goes before the last dot of the file name.
        {"a.b.c", "1", "a.b_1.c"},
        {"plain", "1", "plain_1"},
        {"dir.v2/file", "1", "dir.v2/file_1"},
        {"raw.bin", raw, "raw.bin"},
        {"raw.bin", "", "raw_1.bin"},
    };
    for (const auto& step : steps) {
        save(step.name, step.bytes);
        EXPECT_EQ(readFile(dir.file(step.savedAs)), step.bytes) << step.savedAs;
    }
    EXPECT_EQ(fs::file_size(dir.file("raw_1.bin")), 0u);
    EXPECT_EQ(readFile(dir.file("y_2.bin")), "old");
}

TEST_F(ObjectEventFileTest, EmptyDetailOrAnUnopenableNameWritesNothing) {
    LogCapture capture;
    save("", "x");
    EXPECT_TRUE(fs::is_empty(dir.path()));
    EXPECT_TRUE(capture.messages().empty());

    save("missing/obj.bin", "x");
    EXPECT_TRUE(capture.contains("Invalid output fileName: [" + dir.file("missing/obj.bin") + "]",
                                 kLogError));
    EXPECT_EQ(capture.messages().size(), 1u);
    EXPECT_TRUE(fs::is_empty(dir.path()));
}

// A reader confined to a directory saves nothing outside it, whatever the
// log names, with the kernel's check and with the resolving fallback alike.
TEST(ObjectEventFileConfined, HostileNamesCreateNothingOutsideTheDirectory) {
    testlog::TempDir dir;
    const std::string objects = dir.file("objects");
    const std::string outside = dir.file("outside");
    fs::create_directories(objects);
    fs::create_directories(outside);
    fs::create_directory_symlink("../outside", objects + "/link");
    fs::create_directory_symlink(outside, objects + "/absolute");
    fs::create_symlink("../outside/dangling.bin", objects + "/dangling.bin");
    const char* const kAbsolute = "is an absolute path";
    const char* const kDotDot = "has a \"..\" component";
    const char* const kEscapes = "resolves outside the object directory";
    const struct {
        std::string name;
        const char* refusal;  // null: saved
        std::string savedAs;
    } cases[] = {
        {"plain.bin", nullptr, "plain.bin"},
        {"..dots.bin", nullptr, "..dots.bin"},
        {"dangling.bin", nullptr, "dangling_1.bin"},  // the link counts as taken
        {outside + "/absolute.bin", kAbsolute, ""},
        {"../outside/up.bin", kDotDot, ""},
        {"a/../b.bin", kDotDot, ""},
        {"link/relative.bin", kEscapes, ""},
        {"absolute/link.bin", kEscapes, ""},
    };
    for (const auto enforcement :
         {ObjectDirectory::Enforcement::kKernelFirst, ObjectDirectory::Enforcement::kResolveOnly}) {
        for (const auto& c : cases) {
            SCOPED_TRACE(c.name);
            LogCapture capture;
            VekProfileLogReader reader{"log.bin", VisibilityLevel(5)};
            reader.objectDirectory = ObjectDirectory::open(objects, enforcement);
            ProfileEvent event = objectEvent(c.name, {'x'});
            event.name = "Blob";
            reader.writeObjectEventFile(event);
            if (c.refusal != nullptr) {
                EXPECT_TRUE(capture.contains("Object event [Blob]: file name [" + c.name + "] " +
                                                 c.refusal + "; not saved",
                                             kLogError));
            } else {
                EXPECT_TRUE(capture.messages().empty());
                EXPECT_EQ(readFile(objects + "/" + c.savedAs), "x");
                fs::remove(objects + "/" + c.savedAs);
            }
        }
        EXPECT_TRUE(fs::is_empty(outside));
    }
    // The public switch, on and off again.
    VekProfileLogReader reader{"log.bin", VisibilityLevel(5)};
    EXPECT_FALSE(confineObjectFiles(&reader, dir.file("absent")));
    EXPECT_TRUE(confineObjectFiles(&reader, objects));
    EXPECT_NE(reader.objectDirectory, nullptr);
    EXPECT_TRUE(confineObjectFiles(&reader, ""));
    EXPECT_EQ(reader.objectDirectory, nullptr);
}

}  // namespace
}  // namespace profiling
}  // namespace vek
