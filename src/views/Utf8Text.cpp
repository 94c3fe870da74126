#include "views/Utf8Text.h"

#include <cstdint>

#include "chrometrace/Utf8Repair.h"

namespace vek {
namespace profiling {

std::string validUtf8Text(std::string_view text) {
    std::string repaired;
    return std::string(validUtf8(text, repaired));
}

std::string printableText(std::string_view text) {
    static const char kHex[] = "0123456789abcdef";
    std::string result;
    for (char c : validUtf8Text(text)) {
        const auto byte = static_cast<uint8_t>(c);
        if (byte >= 0x20 && byte != 0x7F) {
            result += c;
        } else if (c == '\n') {
            result += "\\n";
        } else if (c == '\t') {
            result += "\\t";
        } else if (c == '\r') {
            result += "\\r";
        } else {
            result += "\\x";
            result += kHex[byte >> 4];
            result += kHex[byte & 0xF];
        }
    }
    return result;
}

size_t displayWidth(std::string_view utf8) {
    size_t width = 0;
    for (char c : utf8) {
        if ((static_cast<uint8_t>(c) & 0xC0) != 0x80) ++width;  // not a continuation byte
    }
    return width;
}

}  // namespace profiling
}  // namespace vek
