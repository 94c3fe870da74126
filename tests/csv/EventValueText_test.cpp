#include "csv/EventValueText.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

namespace vek {
namespace profiling {
namespace {

constexpr uint64_t kAllOnes = ~uint64_t{0};

template <typename T>
uint64_t bitsOf(T value) {
    uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof value);
    return bits;
}

// The high half of a float payload must not be read.
uint64_t floatPayload(float value) { return 0xDEADBEEF00000000ull | bitsOf(value); }

TEST(EventValueTextTest, EachTypeCodeReadsItsOwnWidthAndSignedness) {
    static const char text[] = "Accelerator, fast";
    const struct {
        uint32_t code;
        uint64_t payload;
        const char* expected;
    } cases[] = {
        {0x8, 0xFF, "-1"},
        {0x16, 0xFFFF8000, "-32768"},
        {0x32, 0xABCD000080000000ull, "-2147483648"},
        {0x64, kAllOnes, "-1"},
        {0x108, 0x1FF, "255"},
        {0x116, 0x1FFFF, "65535"},
        {0x132, 0x1FFFFFFFFull, "4294967295"},
        {0x164, kAllOnes, "18446744073709551615"},
        {0x508, 0x2FE, "254"},
        // 0x226 is a signed 16-bit integer, not a half float (0x3C00 is 1.0 as one).
        {0x226, 0xFFFF, "-1"},
        {0x226, 0x3C00, "15360"},
        {0x232, floatPayload(1.5f), "1.500000"},
        {0x232, floatPayload(-0.25f), "-0.250000"},
        {0x232, floatPayload(16777217.0f), "16777216.000000"},
        {0x264, bitsOf(1e20), "100000000000000000000.000000"},
        {0x608, bitsOf(text), "Accelerator, fast"},
        {0x608, 0, ""},
        {0x165, 12345, ""},
        {0xFFFFFFFF, 12345, ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(eventValueToString(c.code, c.payload), c.expected)
            << std::hex << "code 0x" << c.code << " payload 0x" << c.payload;
    }
}

TEST(EventValueTextTest, UnitNamesAndSuffixesWithMicrosecondsForEveryOtherCode) {
    const struct {
        uint32_t unit;
        const char* upper;
        const char* lower;
    } cases[] = {
        {2, "BYTES", " bytes"}, {3, "CYCLES", " cycles"}, {4, "COUNT", " count"},
        {5, "OBJECT", " object"}, {6, "NONE", " "}, {0, "US", " us"}, {1, "US", " us"},
        {7, "US", " us"}, {0xFFFFFFFF, "US", " us"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(unitNameUpper(c.unit), c.upper) << "unit " << c.unit;
        EXPECT_EQ(unitSuffixLower(c.unit), c.lower) << "unit " << c.unit;
    }
}

}  // namespace
}  // namespace profiling
}  // namespace vek
