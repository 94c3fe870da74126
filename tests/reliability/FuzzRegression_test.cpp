// Every input the fuzzers found a fault with (fuzz/regressions/), replayed
// through what the fuzz target did with it. Under the sanitizer build the
// faults themselves (undefined behaviour, runaway allocation) would show.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "profile_log_generated.h"
#include "reliability/JsonRoundTrip.h"
#include "reliability/LogPipeline.h"
#include "reliability/PeakMemory.h"
#include "support/LogCapture.h"
#include "support/LogWriter.h"
#include "support/MemoryFile.h"

namespace vek {
namespace profiling {
namespace {

namespace fs = std::filesystem;
using testlog::readFile;
using testlog::TempDir;

// Generous for inputs of a few hundred bytes; a length field taken at its
// word costs gigabytes.
constexpr int64_t kMemoryBound = int64_t{64} << 20;

std::vector<fs::path> regressionInputs(const char* kind) {
    std::vector<fs::path> inputs;
    const fs::path directory = fs::path(VEK_SOURCE_DIR) / "fuzz" / "regressions" / kind;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        inputs.push_back(entry.path());
    }
    return inputs;
}

// Makes a directory the current one while it lives: object files are saved
// relative to it.
class CurrentDirectory {
public:
    explicit CurrentDirectory(const std::string& path) : previous_(fs::current_path()) {
        fs::current_path(path);
    }
    ~CurrentDirectory() { fs::current_path(previous_); }

private:
    fs::path previous_;
};

TEST(FuzzRegression, LogInputsRunThroughTheWholePipeline) {
    const std::vector<fs::path> inputs = regressionInputs("log");
    ASSERT_FALSE(inputs.empty());
    for (const fs::path& input : inputs) {
        TempDir dir;
        testlog::LogCapture quiet(0);
        const std::string bytes = readFile(input.string());
        testing::internal::CaptureStdout();
        const int64_t growth = reliability::peakGrowth([&] {
            CurrentDirectory inside(dir.path());
            for (const bool flagTheTraceReader : {false, true}) {
                reliability::runWholePipeline(input.string(), dir.file("summary.csv"),
                                              flagTheTraceReader);
            }
            reliability::decodeWithTheTool(reinterpret_cast<const uint8_t*>(bytes.data()),
                                           bytes.size());
        });
        testing::internal::GetCapturedStdout();
        EXPECT_LT(growth, kMemoryBound) << input.filename();
    }
}

TEST(FuzzRegression, JsonInputsSurviveTheRoundTrip) {
    const std::vector<fs::path> inputs = regressionInputs("json");
    ASSERT_FALSE(inputs.empty());
    for (const fs::path& input : inputs) {
        EXPECT_EQ(reliability::jsonRoundTripProblem(readFile(input.string())), "")
            << input.filename();
    }
}

// The JSON finding: a mantissa longer than 2^64 - 1 (here 2^64 - 1 and more
// digits) came out of the encoder as -2.58e266.
TEST(FuzzRegression, LongMantissasAreEncodedExactly) {
    const testlog::MemoryFile json(
        R"({"chunks": [{"messages": [{"methodType": 1, "stamp": {}, "timing": {}, "events": [)"
        R"({"doubleValue": 18446744073709551615509, "floatValue": 1e-400},)"
        R"({"doubleValue": -9223372036854775809, "int64Value": -9223372036854775808}]}]}]})");
    std::ostringstream log;
    ASSERT_TRUE(encodeJson(json.get(), log).ok());
    const std::string bytes = log.str();
    const auto* events = fb::GetLogChunk(bytes.data() + 4)->messages()->Get(0)->events();
    EXPECT_EQ(events->Get(0)->doubleValue(), 18446744073709551615509.0);
    EXPECT_EQ(events->Get(0)->floatValue(), 0.0f);  // too small for any float
    EXPECT_EQ(events->Get(1)->doubleValue(), -9223372036854775809.0);
    EXPECT_EQ(events->Get(1)->int64Value(), INT64_MIN);
}

}  // namespace
}  // namespace profiling
}  // namespace vek
