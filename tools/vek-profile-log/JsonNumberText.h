// JSON texts of float and double values that read back to the same bits.
#pragma once

#include <cstddef>
#include <string_view>

namespace vek {
namespace profiling {

struct JsonNumberText {
    char text[40];
    size_t length = 0;
    // Not-a-number and the infinities cannot be JSON numbers; they are
    // written as the strings "NaN", "Infinity" and "-Infinity" instead.
    bool isString = false;

    std::string_view view() const { return std::string_view(text, length); }
};

// The shortest decimal that reads back (as a double, then narrowed to float)
// to the same float; it always has a fraction or an exponent, so that -0.0
// keeps its sign through JSON readers that parse "-0" as an integer.
JsonNumberText floatToJson(float value);
// The shortest decimal that reads back to the same double.
JsonNumberText doubleToJson(double value);

}  // namespace profiling
}  // namespace vek
