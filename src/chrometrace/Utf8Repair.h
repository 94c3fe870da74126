// Names in a log are bytes; strict JSON readers want UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace vek {
namespace profiling {

// `text` itself when it is valid UTF-8; otherwise a copy, kept in `repaired`,
// in which every maximal ill-formed subsequence (a stray continuation byte,
// a sequence cut short, an overlong form, a surrogate, a code point past
// U+10FFFF) became U+FFFD. That is how browsers and Python decode such
// bytes, so a viewer shows the same text as a strict reader would.
std::string_view validUtf8(std::string_view text, std::string& repaired);

}  // namespace profiling
}  // namespace vek
