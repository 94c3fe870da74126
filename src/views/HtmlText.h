// Text from the log in an HTML page or SVG drawing.
#pragma once

#include <string>
#include <string_view>

namespace vek {
namespace profiling {

// Valid UTF-8 (see validUtf8Text) with &, <, >, " and ' written as character
// references and control characters other than tab and line ends as U+FFFD,
// so that it is safe in text and in quoted attribute values.
std::string htmlEscaped(std::string_view text);

// At most `length` code points of well-formed UTF-8, the last one "…" when
// the text was cut.
std::string shortened(const std::string& utf8, size_t length);

}  // namespace profiling
}  // namespace vek
