// Every input the fuzzers found a fault with (fuzz/regressions/), replayed
// through what the fuzz target did with it. Under the sanitizer build the
// faults themselves (undefined behaviour, runaway allocation) would show.
#include "profile_log_generated.h"
#include "reliability/JsonRoundTrip.h"
#include "reliability/LogPipeline.h"
#include "reliability/Reliability.h"

namespace vek::profiling {
namespace {

namespace fs = std::filesystem;
using testlog::readFile;

std::vector<fs::path> regressionInputs(const char* kind) {
    std::vector<fs::path> inputs;
    for (const auto& entry : fs::directory_iterator(fs::path(VEK_SOURCE_DIR) / "fuzz" / "regressions" / kind)) {
        inputs.push_back(entry.path());
    }
    return inputs;
}

TEST(FuzzRegression, LogInputsRunThroughTheWholePipeline) {
    const std::vector<fs::path> inputs = regressionInputs("log");
    ASSERT_FALSE(inputs.empty());
    const fs::path previous = fs::current_path();
    for (const fs::path& input : inputs) {
        testlog::TempDir dir;  // the current directory, where object files are saved
        testlog::LogCapture quiet(0);
        const std::string bytes = readFile(input.string());
        testing::internal::CaptureStdout();
        const int64_t growth = reliability::peakGrowth([&] {
            fs::current_path(dir.path());
            for (const bool flagTheTraceReader : {false, true}) {
                reliability::runWholePipeline(input.string(), dir.file("summary.csv"), flagTheTraceReader);
            }
            reliability::decodeWithTheTool(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
            fs::current_path(previous);
        });
        testing::internal::GetCapturedStdout();
        EXPECT_LT(growth, reliability::kMemoryBound) << input.filename();
    }
}

TEST(FuzzRegression, JsonInputsSurviveTheRoundTrip) {
    const std::vector<fs::path> inputs = regressionInputs("json");
    ASSERT_FALSE(inputs.empty());
    for (const fs::path& input : inputs) {
        EXPECT_EQ(reliability::jsonRoundTripProblem(readFile(input.string())), "") << input.filename();
    }
}

// The JSON finding: a mantissa longer than 2^64 - 1 (here 2^64 - 1 and more
// digits) came out of the encoder as -2.58e266. The round trip cannot see
// that, as the wrong value survives it.
TEST(FuzzRegression, LongMantissasAreEncodedExactly) {
    std::string log;
    ASSERT_TRUE(reliability::convertBytes(
                    encodeJson,
                    R"({"chunks": [{"messages": [{"methodType": 1, "stamp": {}, "timing": {}, "events": [)"
                    R"({"doubleValue": 18446744073709551615509, "floatValue": 1e-400},)"
                    R"({"doubleValue": -9223372036854775809, "int64Value": -9223372036854775808}]}]}]})",
                    log)
                    .ok());
    const auto* events = fb::GetLogChunk(log.data() + 4)->messages()->Get(0)->events();
    EXPECT_EQ(events->Get(0)->doubleValue(), 18446744073709551615509.0);
    EXPECT_EQ(events->Get(0)->floatValue(), 0.0f);  // too small for any float
    EXPECT_EQ(events->Get(1)->doubleValue(), -9223372036854775809.0);
    EXPECT_EQ(events->Get(1)->int64Value(), INT64_MIN);
}

}  // namespace
}  // namespace vek::profiling
