#include <gtest/gtest.h>

#include <time.h>

#include <cstdint>
#include <cstdlib>
#include <locale>
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

class LogHeaderTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (const char* tz = std::getenv("TZ")) savedTz_ = tz;
        useTimeZone("UTC");
    }
    void TearDown() override {
        if (savedTz_) {
            setenv("TZ", savedTz_->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }

    static void useTimeZone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }

    // Loads a log whose chunks carry the given headers (absent: none).
    VekProfileLogReader& loadHeaders(const std::vector<std::optional<HeaderSpec>>& headers) {
        LogWriter log;
        for (const auto& header : headers) {
            ChunkSpec& chunk = log.chunk();
            if (header) chunk.header(*header);
            chunk.message(MessageSpec(kExecute).graph("g").times(0, 1));
        }
        path_ = dir_.file("run1.bin");
        log.writeTo(path_);
        reader_ = std::make_unique<VekProfileLogReader>(path_, static_cast<VisibilityLevel>(10));
        EXPECT_TRUE(reader_->loadLog(false));
        return *reader_;
    }

    VekProfileLogReader& loadHeader(const HeaderSpec& header) { return loadHeaders({header}); }

    TempDir dir_;
    std::string path_;
    std::unique_ptr<VekProfileLogReader> reader_;
    std::optional<std::string> savedTz_;
    LogCapture capture_;
};

TEST_F(LogHeaderTest, CopiesTheFirstHeader) {
    VekProfileLogReader& reader = loadHeader(
        HeaderSpec{}.scale(0.5f).epoch(1234).steady(5678).tool("tool", "2.0").backendText("be"));
    EXPECT_TRUE(reader.headerSaved);
    EXPECT_EQ(reader.timeScale, 0.5f);
    EXPECT_EQ(reader.epochTimestamp, 1234u);
    EXPECT_EQ(reader.steadyClockTimestamp, 5678u);
    EXPECT_EQ(reader.toolName, "tool");
    EXPECT_EQ(reader.toolVersion, "2.0");
    EXPECT_EQ(reader.backend, "be");
    EXPECT_FALSE(reader.loraAdapterUpdaterMode);
    EXPECT_EQ(capture_.count("hdr is nullptr"), 0u);
}

TEST_F(LogHeaderTest, HeaderOfTheSecondChunkIsSavedWhenTheFirstHasNone) {
    VekProfileLogReader& reader = loadHeaders(
        {std::nullopt, HeaderSpec{}.tool("second", "1"), HeaderSpec{}.tool("third", "1")});
    EXPECT_TRUE(reader.headerSaved);
    EXPECT_EQ(reader.toolName, "second");
    EXPECT_EQ(capture_.count("hdr is nullptr"), 1u);
    EXPECT_TRUE(capture_.contains("hdr is nullptr", 5));
    // The loader never asks twice.
    EXPECT_EQ(capture_.count("Header details have been saved already."), 0u);
}

TEST_F(LogHeaderTest, SavingAgainOnlyLogsThatItIsDone) {
    VekProfileLogReader& reader = loadHeader(HeaderSpec{}.tool("tool", "1"));
    reader.saveHeader();
    EXPECT_TRUE(capture_.contains("Header details have been saved already.", 5));
    EXPECT_EQ(reader.toolName, "tool");
}

TEST_F(LogHeaderTest, LoraModeNeedsTheExactToolName) {
    EXPECT_TRUE(loadHeader(HeaderSpec{}.tool(kLoraAdapterUpdaterToolName, "1"))
                    .loraAdapterUpdaterMode);
    const std::string exact = kLoraAdapterUpdaterToolName;
    for (const std::string& nearMiss :
         {exact + " ", std::string("ZOLRA-LORA-ADAPTER-BIN-UPDATER"),
          std::string("Zolra-lora-adapter-bin-updater"), exact.substr(0, exact.size() - 1),
          exact + std::string(1, '\0')}) {
        EXPECT_FALSE(loadHeader(HeaderSpec{}.tool(nearMiss, "1")).loraAdapterUpdaterMode)
            << nearMiss;
    }
}

TEST_F(LogHeaderTest, PrintsEveryLine) {
    VekProfileLogReader& reader = loadHeader(HeaderSpec{}
                                                 .epoch(1773151387000000ull)
                                                 .steady(98765432100ull)
                                                 .scale(1.0f)
                                                 .tool("example-tool", "1.0.0")
                                                 .backendText("ExampleBackend 2.1"));
    const std::string text = reader.printHeader();
    EXPECT_EQ(text, "Input Log File Location: " + path_ + "\n" +
                        "Log File Created: Tue Mar 10 14:03:07 2026\n"
                        "Time Scale: 1\n"
                        "Epoch Timestamp: 1773151387000000 Steady Clock Timestamp: 98765432100\n"
                        "Generated using: \n" +
                        kVersionLine + "\n" +
                        "example-tool: 1.0.0\n"
                        "Backend: ExampleBackend 2.1\n");
}

TEST_F(LogHeaderTest, ToolLineNeedsNameAndVersionAndBackendLineNeedsABackend) {
    HeaderSpec nameOnly;
    nameOnly.toolName = "tool";
    const auto lines = linesOf(loadHeader(nameOnly).printHeader());
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(lines[4], "Generated using: ");
    EXPECT_EQ(lines[5], kVersionLine);

    HeaderSpec versionOnly;
    versionOnly.toolVersion = "1.0";
    versionOnly.backend = "";
    EXPECT_EQ(linesOf(loadHeader(versionOnly).printHeader()).size(), 6u);
}

TEST_F(LogHeaderTest, EpochZeroIsShownInLocalTime) {
    EXPECT_EQ(linesOf(loadHeader(HeaderSpec{}.epoch(0)).printHeader()).at(1),
              "Log File Created: Thu Jan  1 00:00:00 1970");
    useTimeZone("EST5");
    EXPECT_EQ(linesOf(loadHeader(HeaderSpec{}.epoch(999999)).printHeader()).at(1),
              "Log File Created: Wed Dec 31 19:00:00 1969");
}

TEST_F(LogHeaderTest, TimeTooLargeForAsctimeGivesNoText) {
    VekProfileLogReader& reader = loadHeader(HeaderSpec{}.epoch(UINT64_MAX));
    EXPECT_EQ(reader.printHeader(), "");
}

TEST_F(LogHeaderTest, TimeScaleUsesDefaultFloatFormatting) {
    const std::vector<std::pair<float, std::string>> cases = {
        {1.0f, "1"}, {0.001f, "0.001"}, {2.5f, "2.5"}, {1234567.0f, "1.23457e+06"}, {0.0f, "0"}};
    for (const auto& [scale, text] : cases) {
        EXPECT_EQ(linesOf(loadHeader(HeaderSpec{}.scale(scale)).printHeader()).at(2),
                  "Time Scale: " + text);
    }
}

// Groups digits in threes, as some user locales do.
struct GroupingPunct : std::numpunct<char> {
    char do_thousands_sep() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
};

TEST_F(LogHeaderTest, NumbersIgnoreTheGlobalLocale) {
    const std::locale previous =
        std::locale::global(std::locale(std::locale::classic(), new GroupingPunct));
    const std::string text = loadHeader(HeaderSpec{}.epoch(1000000).steady(1234567)).printHeader();
    std::locale::global(previous);
    EXPECT_EQ(linesOf(text).at(3), "Epoch Timestamp: 1000000 Steady Clock Timestamp: 1234567");
}

TEST_F(LogHeaderTest, NoHeaderPrintsNothing) {
    VekProfileLogReader& reader = loadHeaders({std::nullopt});
    EXPECT_FALSE(reader.headerSaved);
    EXPECT_EQ(reader.printHeader(), "");
    EXPECT_TRUE(capture_.contains("Header details unavailable.", 5));
}

}  // namespace
}  // namespace profiling
}  // namespace vek
