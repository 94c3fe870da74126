// Line conventions of the text summary: titles with fixed underlines,
// indentation in steps of `indentWidth`, Graph and NetRun lines.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

namespace vek {
namespace profiling {

// Blanks per indentation level of the reports.
constexpr uint64_t indentWidth = 4;

namespace text {

// Written a run of blanks at a time: reports of wide logs indent many
// thousands of lines.
inline void indent(std::ostream& out, uint64_t level) {
    static constexpr char kBlanks[] = "                                ";
    constexpr uint64_t kRun = sizeof kBlanks - 1;
    for (uint64_t left = level * indentWidth; left > 0;) {
        const uint64_t count = left < kRun ? left : kRun;
        out.write(kBlanks, static_cast<std::streamsize>(count));
        left -= count;
    }
}

// A title and an underline of exactly `underline` dashes; the widths are
// fixed per section and do not always match the title's length.
inline void title(std::ostream& out, const char* heading, size_t underline) {
    out << heading << '\n' << std::string(underline, '-') << '\n';
}

inline void emptyLine(std::ostream& out) { out << '\n'; }

inline void graphLine(std::ostream& out, size_t index, const std::string& graphName) {
    out << "Graph " << std::to_string(index) << " (" << graphName << "):\n";
}

inline void netRunLine(std::ostream& out, uint64_t value) {
    indent(out, 1);
    out << "NetRun: " << std::to_string(value) << " us\n";
}

}  // namespace text
}  // namespace profiling
}  // namespace vek
