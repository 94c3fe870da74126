// How much a piece of work raises the process's peak resident memory: the
// check that hostile input never makes the reader allocate more than the
// input can justify.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>

namespace vek {
namespace profiling {
namespace reliability {

// A "Name:   1234 kB" line of /proc/self/status, in bytes; -1 when absent.
inline int64_t statusBytes(const std::string& name) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.compare(0, name.size() + 1, name + ":") == 0) {
            return std::stoll(line.substr(name.size() + 1)) * 1024;
        }
    }
    return -1;
}

// The rise of the peak resident memory (VmHWM) over the resident memory
// before `work`, in bytes; -1 when the peak cannot be reset here.
template <typename Work>
int64_t peakGrowth(Work&& work) {
    {
        std::ofstream reset("/proc/self/clear_refs");
        reset << "5";  // resets VmHWM to the current resident size
        reset.flush();
        if (!reset) return -1;
    }
    const int64_t before = statusBytes("VmRSS");
    work();
    const int64_t peak = statusBytes("VmHWM");
    return before < 0 || peak < 0 ? -1 : peak - before;
}

}  // namespace reliability
}  // namespace profiling
}  // namespace vek
