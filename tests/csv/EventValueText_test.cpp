#include "csv/EventValueText.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>

namespace vek {
namespace profiling {
namespace {

constexpr uint64_t kAllOnes = std::numeric_limits<uint64_t>::max();

uint64_t floatPayload(float value) {
    uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return 0xDEADBEEF00000000ull | bits;  // the high half must not be read
}

uint64_t doublePayload(double value) {
    uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

uint64_t addressPayload(const char* text) {
    uint64_t bits = 0;
    std::memcpy(&bits, &text, sizeof text);
    return bits;
}

TEST(EventValueTextTest, SignedIntegersReadOnlyTheirLowBytes) {
    EXPECT_EQ(eventValueToString(0x8, 0xFF), "-1");
    EXPECT_EQ(eventValueToString(0x8, 0x1234567F), "127");
    EXPECT_EQ(eventValueToString(0x16, 0xFFFF8000), "-32768");
    EXPECT_EQ(eventValueToString(0x32, 0xABCD000080000000ull), "-2147483648");
    EXPECT_EQ(eventValueToString(0x32, 0x7FFFFFFF), "2147483647");
    EXPECT_EQ(eventValueToString(0x64, kAllOnes), "-1");
    EXPECT_EQ(eventValueToString(0x64, 0x8000000000000000ull), "-9223372036854775808");
    EXPECT_EQ(eventValueToString(0x64, 42), "42");
}

TEST(EventValueTextTest, UnsignedIntegersReadOnlyTheirLowBytes) {
    EXPECT_EQ(eventValueToString(0x108, 0xFF), "255");
    EXPECT_EQ(eventValueToString(0x108, 0x1FF), "255");
    EXPECT_EQ(eventValueToString(0x116, 0x1FFFF), "65535");
    EXPECT_EQ(eventValueToString(0x132, 0x1FFFFFFFFull), "4294967295");
    EXPECT_EQ(eventValueToString(0x164, kAllOnes), "18446744073709551615");
    EXPECT_EQ(eventValueToString(0x164, 0), "0");
    EXPECT_EQ(eventValueToString(0x508, 0x2FE), "254");
}

TEST(EventValueTextTest, Code226IsASigned16BitIntegerNotAHalfFloat) {
    EXPECT_EQ(eventValueToString(0x226, 0xFFFF), "-1");
    EXPECT_EQ(eventValueToString(0x226, 0x3C00), "15360");  // 1.0 as a half float
    EXPECT_EQ(eventValueToString(0x226, 0x12348000), "-32768");
}

TEST(EventValueTextTest, FloatsPrintWithSixDecimalsAndInFull) {
    EXPECT_EQ(eventValueToString(0x232, floatPayload(1.5f)), "1.500000");
    EXPECT_EQ(eventValueToString(0x232, floatPayload(-0.25f)), "-0.250000");
    EXPECT_EQ(eventValueToString(0x264, doublePayload(1e20)),
              "100000000000000000000.000000");
    EXPECT_EQ(eventValueToString(0x264, doublePayload(2.0 / 3.0)), "0.666667");
    // A float's widening is exact: 0.1f shows its own digits, not 0.1's.
    EXPECT_EQ(eventValueToString(0x232, floatPayload(0.1f)), "0.100000");
    EXPECT_EQ(eventValueToString(0x232, floatPayload(16777217.0f)), "16777216.000000");
}

TEST(EventValueTextTest, StringsAreReadThroughTheirAddress) {
    static const char text[] = "Accelerator, fast";
    EXPECT_EQ(eventValueToString(0x608, addressPayload(text)), "Accelerator, fast");
    EXPECT_EQ(eventValueToString(0x608, addressPayload("")), "");
    EXPECT_EQ(eventValueToString(0x608, 0), "");
}

TEST(EventValueTextTest, UnknownCodesGiveAnEmptyText) {
    for (uint32_t code : {0x0u, 0x1u, 0x65u, 0x165u, 0x233u, 0x608000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(eventValueToString(code, 12345), "") << "code " << code;
    }
}

TEST(EventValueTextTest, UnitNamesAndSuffixes) {
    EXPECT_EQ(unitNameUpper(2), "BYTES");
    EXPECT_EQ(unitNameUpper(3), "CYCLES");
    EXPECT_EQ(unitNameUpper(4), "COUNT");
    EXPECT_EQ(unitNameUpper(5), "OBJECT");
    EXPECT_EQ(unitNameUpper(6), "NONE");
    EXPECT_EQ(unitSuffixLower(2), " bytes");
    EXPECT_EQ(unitSuffixLower(3), " cycles");
    EXPECT_EQ(unitSuffixLower(4), " count");
    EXPECT_EQ(unitSuffixLower(5), " object");
    EXPECT_EQ(unitSuffixLower(6), " ");
    for (uint32_t unit : {0u, 1u, 7u, 100u, static_cast<uint32_t>(-1)}) {
        EXPECT_EQ(unitNameUpper(unit), "US") << "unit " << unit;
        EXPECT_EQ(unitSuffixLower(unit), " us") << "unit " << unit;
    }
}

}  // namespace
}  // namespace profiling
}  // namespace vek
