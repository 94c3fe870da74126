#include <gtest/gtest.h>

#include <time.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "VekVersion.h"
#include "reader/VekProfileLogReader.h"
#include "support/LogCapture.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using namespace testlog;

const std::string kVersionLine = std::string("vek-profile-viewer: ") + VEK_PROFILE_VIEWER_VERSION;

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

void useTimeZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
}

class LogHeaderTest : public ::testing::Test {
protected:
    void SetUp() override { useTimeZone("UTC"); }

    // Loads a log whose chunks carry the given headers (absent: none).
    VekProfileLogReader& loadHeaders(const std::vector<std::optional<HeaderSpec>>& headers) {
        LogWriter log;
        for (const auto& header : headers) {
            ChunkSpec& chunk = log.chunk();
            if (header) chunk.header(*header);
            chunk.message(MessageSpec(kExecute).graph("g").times(0, 1));
        }
        log.writeTo(path_);
        reader_ = std::make_unique<VekProfileLogReader>(path_, static_cast<VisibilityLevel>(10));
        EXPECT_TRUE(reader_->loadLog(false));
        return *reader_;
    }
    std::string printed(const HeaderSpec& header) { return loadHeaders({header}).printHeader(); }

    TempDir dir_;
    const std::string path_ = dir_.file("run1.bin");
    std::unique_ptr<VekProfileLogReader> reader_;
    LogCapture capture_;
};

TEST_F(LogHeaderTest, PrintsEveryLine) {
    EXPECT_EQ(printed(HeaderSpec{}
                          .epoch(1773151387000000ull)
                          .steady(98765432100ull)
                          .scale(1.0f)
                          .tool("example-tool", "1.0.0")
                          .backendText("ExampleBackend 2.1")),
              "Input Log File Location: " + path_ + "\n" +
                  "Log File Created: Tue Mar 10 14:03:07 2026\n"
                  "Time Scale: 1\n"
                  "Epoch Timestamp: 1773151387000000 Steady Clock Timestamp: 98765432100\n"
                  "Generated using: \n" +
                  kVersionLine + "\n" +
                  "example-tool: 1.0.0\n"
                  "Backend: ExampleBackend 2.1\n");
}

TEST_F(LogHeaderTest, OnlyTheFirstHeaderIsSavedEvenFromTheSecondChunk) {
    VekProfileLogReader& reader = loadHeaders(
        {std::nullopt, HeaderSpec{}.tool("second", "1"), HeaderSpec{}.tool("third", "1")});
    EXPECT_EQ(reader.toolName, "second");
    EXPECT_EQ(capture_.count("hdr is nullptr"), 1u);
    EXPECT_TRUE(capture_.contains("hdr is nullptr", 5));
    // The loader never asks twice; a later call only says so.
    EXPECT_EQ(capture_.count("Header details have been saved already."), 0u);
    reader.saveHeader();
    EXPECT_TRUE(capture_.contains("Header details have been saved already.", 5));
    EXPECT_EQ(reader.toolName, "second");
}

TEST_F(LogHeaderTest, LoraModeNeedsTheExactToolName) {
    const std::string exact = kLoraAdapterUpdaterToolName;
    EXPECT_TRUE(loadHeaders({HeaderSpec{}.tool(exact, "1")}).loraAdapterUpdaterMode);
    for (const std::string& nearMiss :
         {exact + " ", std::string("ZOLRA-LORA-ADAPTER-BIN-UPDATER"),
          std::string("Zolra-lora-adapter-bin-updater"), exact.substr(0, exact.size() - 1),
          exact + std::string(1, '\0')}) {
        EXPECT_FALSE(loadHeaders({HeaderSpec{}.tool(nearMiss, "1")}).loraAdapterUpdaterMode)
            << nearMiss;
    }
}

TEST_F(LogHeaderTest, ToolLineNeedsNameAndVersionAndBackendLineNeedsABackend) {
    HeaderSpec nameOnly, versionOnly;
    nameOnly.toolName = "tool";
    versionOnly.toolVersion = "1.0";
    versionOnly.backend = "";
    for (const HeaderSpec& header : {nameOnly, versionOnly}) {
        const auto lines = linesOf(printed(header));
        ASSERT_EQ(lines.size(), 6u);
        EXPECT_EQ(lines[4], "Generated using: ");
        EXPECT_EQ(lines[5], kVersionLine);
    }
}

TEST_F(LogHeaderTest, SingleLinesOfTheText) {
    const struct {
        HeaderSpec header;
        const char* zone;
        size_t line;
        std::string text;
    } cases[] = {
        // Whole seconds of the epoch, in local time.
        {HeaderSpec{}.epoch(999999), "EST5", 1, "Log File Created: Wed Dec 31 19:00:00 1969"},
        {HeaderSpec{}.scale(0.001f), "UTC", 2, "Time Scale: 0.001"},
        {HeaderSpec{}.scale(2.5f), "UTC", 2, "Time Scale: 2.5"},
        {HeaderSpec{}.scale(1234567.0f), "UTC", 2, "Time Scale: 1.23457e+06"},
        {HeaderSpec{}.scale(0.0f), "UTC", 2, "Time Scale: 0"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        useTimeZone(c.zone);
        const auto lines = linesOf(printed(c.header));
        useTimeZone("UTC");
        ASSERT_GT(lines.size(), c.line);
        EXPECT_EQ(lines[c.line], c.text);
    }
}

TEST_F(LogHeaderTest, NothingIsPrintedWithoutAHeaderOrForATimeAsctimeCannotShow) {
    EXPECT_EQ(printed(HeaderSpec{}.epoch(UINT64_MAX)), "");
    VekProfileLogReader& reader = loadHeaders({std::nullopt});
    EXPECT_FALSE(reader.headerSaved);
    EXPECT_EQ(reader.printHeader(), "");
    EXPECT_TRUE(capture_.contains("Header details unavailable.", 5));
}

}  // namespace
}  // namespace profiling
}  // namespace vek
