// Collects the library's diagnostics, formatted, while it is alive.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vek::profiling::testlog {

struct CapturedMessage {
    uint32_t level;
    std::string text;
    uint64_t timestampNs;
};

class LogCapture {
public:
    explicit LogCapture(int32_t maxLevel = 5);  // registered as the library's logger
    ~LogCapture();                              // messages are dropped again

    const std::vector<CapturedMessage>& messages() const;
    bool contains(const std::string& text, uint32_t level) const;  // exactly this text and level
    size_t count(const std::string& text) const;
    void clear();
};

}  // namespace vek::profiling::testlog
