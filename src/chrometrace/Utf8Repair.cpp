#include "chrometrace/Utf8Repair.h"

#include <cstddef>
#include <cstdint>

namespace vek {
namespace profiling {
namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

// The length of the well-formed sequence at `at`, or 0 when it is ill-formed;
// `prefix` is then the length of its maximal subpart (at least 1): the bytes
// that one U+FFFD replaces.
size_t sequenceLength(std::string_view text, size_t at, size_t& prefix) {
    const auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
    const uint8_t lead = byte(at);
    size_t length = 0;
    // The second byte's range narrows for the leads whose full range would
    // allow overlong forms, surrogates or code points past U+10FFFF.
    uint8_t low = 0x80;
    uint8_t high = 0xBF;
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
        prefix = 1;  // a continuation byte alone, or C0, C1, F5..FF
        return 0;
    }
    for (size_t i = 1; i < length; ++i) {
        const bool inRange = at + i < text.size() && byte(at + i) >= (i == 1 ? low : 0x80) &&
                             byte(at + i) <= (i == 1 ? high : 0xBF);
        if (!inRange) {
            prefix = i;
            return 0;
        }
    }
    return length;
}

}  // namespace

std::string_view validUtf8(std::string_view text, std::string& repaired) {
    size_t at = 0;
    // Most names are ASCII: nothing to copy until the first ill-formed byte.
    while (at < text.size()) {
        if (static_cast<uint8_t>(text[at]) < 0x80) {
            ++at;
            continue;
        }
        size_t prefix = 0;
        const size_t length = sequenceLength(text, at, prefix);
        if (length == 0) break;
        at += length;
    }
    if (at == text.size()) return text;

    repaired.assign(text.substr(0, at));
    while (at < text.size()) {
        if (static_cast<uint8_t>(text[at]) < 0x80) {
            repaired += text[at++];
            continue;
        }
        size_t prefix = 0;
        const size_t length = sequenceLength(text, at, prefix);
        if (length != 0) {
            repaired.append(text.substr(at, length));
            at += length;
        } else {
            repaired.append(kReplacementCharacter);
            at += prefix;
        }
    }
    return repaired;
}

}  // namespace profiling
}  // namespace vek
