#include "views/HtmlText.h"

#include <algorithm>
#include <cstdint>

#include "views/Utf8Text.h"

namespace vek {
namespace profiling {

std::string htmlEscaped(std::string_view text) {
    // Most names need nothing: printable ASCII without markup characters.
    const auto plain = [](char c) {
        const auto byte = static_cast<uint8_t>(c);
        return byte >= 0x20 && byte < 0x7F && c != '&' && c != '<' && c != '>' && c != '"' &&
               c != '\'';
    };
    if (std::all_of(text.begin(), text.end(), plain)) return std::string(text);
    std::string result;
    for (char c : validUtf8Text(text)) {
        switch (c) {
            case '&': result += "&amp;"; break;
            case '<': result += "&lt;"; break;
            case '>': result += "&gt;"; break;
            case '"': result += "&quot;"; break;
            case '\'': result += "&#39;"; break;
            case '\t':
            case '\n':
            case '\r': result += c; break;
            default:
                if (static_cast<uint8_t>(c) < 0x20 || c == 0x7F) {
                    result += "\xEF\xBF\xBD";
                } else {
                    result += c;
                }
        }
    }
    return result;
}

std::string shortened(const std::string& utf8, size_t length) {
    if (length == 0 || displayWidth(utf8) <= length) return utf8;
    size_t kept = 0;
    size_t end = 0;
    for (; end < utf8.size(); ++end) {
        if ((static_cast<uint8_t>(utf8[end]) & 0xC0) != 0x80 && kept++ == length - 1) break;
    }
    return utf8.substr(0, end) + "\xE2\x80\xA6";
}

}  // namespace profiling
}  // namespace vek
