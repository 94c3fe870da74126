#include "views/Utf8Text.h"

#include <cstdint>

namespace vek {
namespace profiling {
namespace {

constexpr const char kReplacement[] = "\xEF\xBF\xBD";

// The length of the well-formed sequence at `at`, or 0 when there is none.
size_t sequenceLength(std::string_view text, size_t at) {
    const auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
    const uint8_t lead = byte(at);
    if (lead < 0x80) return 1;
    size_t length = 0;
    uint8_t low = 0x80;  // the range of the second byte, which rules out
    uint8_t high = 0xBF; // overlong forms, surrogates and code points past U+10FFFF
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return 0;
    }
    if (at + length > text.size()) return 0;
    if (byte(at + 1) < low || byte(at + 1) > high) return 0;
    for (size_t i = 2; i < length; ++i) {
        if (byte(at + i) < 0x80 || byte(at + i) > 0xBF) return 0;
    }
    return length;
}

}  // namespace

std::string validUtf8(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (size_t at = 0; at < text.size();) {
        const size_t length = sequenceLength(text, at);
        if (length == 0) {
            result += kReplacement;
            ++at;
        } else {
            result.append(text.substr(at, length));
            at += length;
        }
    }
    return result;
}

std::string printableText(std::string_view text) {
    static const char kHex[] = "0123456789abcdef";
    std::string result;
    for (char c : validUtf8(text)) {
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
