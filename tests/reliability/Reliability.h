// Shared by the reliability tests: peak-memory growth, the sample log, an op record as the runtime logs it.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "chrometrace/LintingIdentifiers.h"
#include "reader/VekProfileLogReaderChrometrace.h"
#include "support/LogCapture.h"
#include "support/LogWriter.h"

namespace vek::profiling {
using namespace testlog;

namespace reliability {

// Generous for logs of kilobytes; a length or count taken at its word costs gigabytes.
constexpr int64_t kMemoryBound = int64_t{64} << 20;

inline int64_t statusBytes(const std::string& name) {  // of /proc/self/status; -1 when absent
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, name.size() + 1, name + ":") == 0) return std::stoll(line.substr(name.size() + 1)) * 1024;
    }
    return -1;
}

// The rise of the peak resident memory over the resident memory before `work`; -1 when it cannot be reset.
template <typename Work>
int64_t peakGrowth(Work&& work) {
    if (!(std::ofstream("/proc/self/clear_refs") << "5" << std::flush)) return -1;  // VmHWM = VmRSS
    const int64_t before = statusBytes("VmRSS");
    work();
    const int64_t peak = statusBytes("VmHWM");
    return before < 0 || peak < 0 ? -1 : peak - before;
}

inline std::string sampleLog() { return readFile(std::string(VEK_SAMPLE_DIR) + "/linting_sample.log"); }

inline EventSpec loggedOp(const std::string& name, uint64_t duration = 40, const std::string& background = "dma") {
    return EventSpec::u64(name, duration, 1, kOpRecordIdentifier).withChildren({
        EventSpec::u64("wait", duration / 8, 1, kWaitDurationIdentifier),
        EventSpec::u64("bg", duration * 3 / 4, 1, kOpBackgroundIdentifier)
            .withChildren({EventSpec::u64(background, 0, 6, kOpBackgroundNameIdentifier)}),
        EventSpec::u64("bg wait", 3, 1, kWaitBackgroundIdentifier),
        EventSpec::u64("resources", 1, 1, kResourceMaskIdentifier)});
}

}  // namespace reliability
}  // namespace vek::profiling
