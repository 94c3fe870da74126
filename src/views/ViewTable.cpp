#include "views/ViewTable.h"

#include <cmath>
#include <cstdio>

namespace vek {
namespace profiling {

std::string cellText(const Cell& cell) {
    struct Writer {
        std::string operator()(std::monostate) const { return std::string(); }
        std::string operator()(uint64_t value) const { return std::to_string(value); }
        std::string operator()(int64_t value) const { return std::to_string(value); }
        std::string operator()(const Decimal& decimal) const {
            if (!std::isfinite(decimal.value)) return std::string();
            char text[400];  // room for any double in fixed notation
            std::snprintf(text, sizeof text, "%.*f", decimal.places, decimal.value);
            // No "-0.0": a change too small to show has no sign.
            std::string result = text;
            if (result.find_first_not_of("-0.") == std::string::npos && result[0] == '-') {
                result.erase(0, 1);
            }
            return result;
        }
        std::string operator()(const std::string& text) const { return text; }
    };
    return std::visit(Writer{}, cell);
}

std::string shownText(const Cell& cell, bool showPlus, const std::string& emptyText) {
    if (std::holds_alternative<std::monostate>(cell)) return emptyText;
    const std::string text = cellText(cell);
    const bool figure = !std::holds_alternative<std::string>(cell);
    const bool positive = figure && !text.empty() && text[0] != '-' &&
                          text.find_first_not_of("0.") != std::string::npos;
    return (showPlus && positive ? "+" : "") + text;
}

bool isBlank(const Cell& cell) {
    struct Test {
        bool operator()(std::monostate) const { return true; }
        bool operator()(uint64_t value) const { return value == 0; }
        bool operator()(int64_t value) const { return value == 0; }
        bool operator()(const Decimal& decimal) const { return decimal.value == 0.0; }
        bool operator()(const std::string& text) const { return text.empty(); }
    };
    return std::visit(Test{}, cell);
}

}  // namespace profiling
}  // namespace vek
