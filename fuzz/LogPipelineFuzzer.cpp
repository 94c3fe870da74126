// Fuzz target: arbitrary bytes as a profile log, through everything a host
// does with it (both readers, their reports and headers) and through the log
// tool's decoder.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "FuzzSandbox.h"
#include "reliability/LogPipeline.h"

namespace {

constexpr char kLogName[] = "input.log";

void writeLog(const uint8_t* data, size_t size) {
    std::FILE* file = std::fopen(kLogName, "wb");
    if (file == nullptr || std::fwrite(data, 1, size, file) != size || std::fclose(file) != 0) {
        std::perror("cannot write the input log");
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    vek::fuzz::enterSandbox(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    writeLog(data, size);
    // Which reader loads with the flag set follows from the input, so that a
    // finding replays the same way; the regression tests replay both.
    vek::profiling::reliability::runWholePipeline(kLogName, "summary.csv", size % 2 == 1);
    vek::profiling::reliability::decodeWithTheTool(data, size);
    vek::fuzz::clearScratch();
    return 0;
}
