#include "csv/EventValueText.h"

#include <cstdio>
#include <cstring>

namespace vek {
namespace profiling {
namespace {

template <typename T>
T lowBytesAs(uint64_t payload) {
    T value;
    std::memcpy(&value, &payload, sizeof value);  // little-endian: the low bytes
    return value;
}

// "%f" into a buffer sized by a measuring call, so huge values print in full.
std::string fixedSixDecimals(double value) {
    const int length = std::snprintf(nullptr, 0, "%f", value);
    if (length <= 0) return std::string();
    std::string text(static_cast<size_t>(length), '\0');
    std::snprintf(text.data(), text.size() + 1, "%f", value);
    return text;
}

}  // namespace

std::string eventValueToString(uint32_t dataType, uint64_t payload) {
    switch (dataType) {
        case 0x8: return std::to_string(lowBytesAs<int8_t>(payload));
        case 0x16: return std::to_string(lowBytesAs<int16_t>(payload));
        case 0x32: return std::to_string(lowBytesAs<int32_t>(payload));
        case 0x64: return std::to_string(lowBytesAs<int64_t>(payload));
        case 0x108: return std::to_string(lowBytesAs<uint8_t>(payload));
        case 0x116: return std::to_string(lowBytesAs<uint16_t>(payload));
        case 0x132: return std::to_string(lowBytesAs<uint32_t>(payload));
        case 0x164: return std::to_string(payload);
        // Read as a signed 16-bit integer, not as a half-precision float.
        case 0x226: return std::to_string(lowBytesAs<int16_t>(payload));
        case 0x232: return fixedSixDecimals(static_cast<double>(lowBytesAs<float>(payload)));
        case 0x264: return fixedSixDecimals(lowBytesAs<double>(payload));
        case 0x508: return std::to_string(lowBytesAs<uint8_t>(payload));
        case 0x608: {
            const char* text = lowBytesAs<const char*>(payload);
            return text != nullptr ? std::string(text) : std::string();
        }
        default: return std::string();
    }
}

std::string unitNameUpper(uint32_t unit) {
    switch (unit) {
        case 2: return "BYTES";
        case 3: return "CYCLES";
        case 4: return "COUNT";
        case 5: return "OBJECT";
        case 6: return "NONE";
        default: return "US";
    }
}

std::string unitSuffixLower(uint32_t unit) {
    switch (unit) {
        case 2: return " bytes";
        case 3: return " cycles";
        case 4: return " count";
        case 5: return " object";
        case 6: return " ";
        default: return " us";
    }
}

}  // namespace profiling
}  // namespace vek
