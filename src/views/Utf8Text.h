// Text from the log is bytes: names may hold invalid UTF-8 and control
// characters. Every view passes it through here before showing it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vek {
namespace profiling {

// The text as valid UTF-8: ill-formed bytes become U+FFFD as browsers
// decode them (validUtf8 of chrometrace/Utf8Repair.h).
std::string validUtf8Text(std::string_view text);

// validUtf8Text, with control characters written as escapes (\n, \t, \x01,
// ...) so that the text stays on one line of a terminal.
std::string printableText(std::string_view text);

// The number of code points of well-formed UTF-8: the columns it takes on a
// terminal, wide characters aside.
size_t displayWidth(std::string_view utf8);

}  // namespace profiling
}  // namespace vek
