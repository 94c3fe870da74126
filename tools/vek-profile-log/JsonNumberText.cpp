#include "JsonNumberText.h"

#include <charconv>
#include <cmath>
#include <cstring>

#include "JsonLogFormat.h"

namespace vek {
namespace profiling {
namespace {

bool setSpecial(JsonNumberText& out, double value) {
    const char* text = nullptr;
    if (std::isnan(value)) {
        text = logjson::kNotANumberText;
    } else if (std::isinf(value)) {
        text = value > 0 ? logjson::kInfinityText : logjson::kNegativeInfinityText;
    } else {
        return false;
    }
    out.length = std::strlen(text);
    std::memcpy(out.text, text, out.length);
    out.isString = true;
    return true;
}

// "1" would read back as an integer, and "-0" as integer zero without its sign.
void ensureFloatingForm(JsonNumberText& out) {
    if (std::memchr(out.text, '.', out.length) == nullptr &&
        std::memchr(out.text, 'e', out.length) == nullptr) {
        out.text[out.length++] = '.';
        out.text[out.length++] = '0';
    }
}

template <typename Number>
void formatShortest(JsonNumberText& out, Number value) {
    // Room for ".0" stays at the end; the shortest form of a double is at most 24 characters.
    const auto result = std::to_chars(out.text, out.text + sizeof out.text - 2, value);
    out.length = static_cast<size_t>(result.ptr - out.text);
    ensureFloatingForm(out);
}

bool readsBackAs(const JsonNumberText& out, float expected) {
    double parsed = 0.0;
    const auto result = std::from_chars(out.text, out.text + out.length, parsed);
    if (result.ec != std::errc()) return false;
    const float narrowed = static_cast<float>(parsed);
    return std::memcmp(&narrowed, &expected, sizeof narrowed) == 0;
}

}  // namespace

JsonNumberText floatToJson(float value) {
    JsonNumberText out;
    if (setSpecial(out, value)) return out;
    // JSON readers parse into a double; the float's own shortest form
    // almost always survives the double-then-float rounding, and where it
    // might not, the exact double form of the float is used instead.
    formatShortest(out, value);
    if (!readsBackAs(out, value)) formatShortest(out, static_cast<double>(value));
    return out;
}

JsonNumberText doubleToJson(double value) {
    JsonNumberText out;
    if (setSpecial(out, value)) return out;
    formatShortest(out, value);
    return out;
}

}  // namespace profiling
}  // namespace vek
