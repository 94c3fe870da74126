// Collects the library's diagnostics, formatted, while it is alive.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vek::profiling::testlog {

struct CapturedMessage {
    uint32_t level;
    std::string text;  // formatted with the message's arguments
    uint64_t timestampNs;
};

class LogCapture {
public:
    // Registers a logger with the given maximum level as the library's.
    explicit LogCapture(int32_t maxLevel = 5);
    // Registers a logger that receives nothing, so messages are dropped again.
    ~LogCapture();

    const std::vector<CapturedMessage>& messages() const;
    // True when a message with exactly this text and level was received.
    bool contains(const std::string& text, uint32_t level) const;
    // How many messages with this text were received.
    size_t count(const std::string& text) const;
    void clear();
};

}  // namespace vek::profiling::testlog
