#include "chrometrace/Utf8Repair.h"

#include <gtest/gtest.h>

#include <string>

namespace vek {
namespace profiling {
namespace {

TEST(Utf8RepairTest, EachMaximalIllFormedSubsequenceBecomesOneReplacement) {
    const std::string r = "\xEF\xBF\xBD";  // U+FFFD
    const struct {
        std::string bytes;
        std::string expected;
    } cases[] = {
        {"", ""},
        {std::string("plain\0ascii\x7F", 12), std::string("plain\0ascii\x7F", 12)},
        {"\xE2\x82\xAC \xF0\x9F\x98\x80 \xF4\x8F\xBF\xBF", "\xE2\x82\xAC \xF0\x9F\x98\x80 \xF4\x8F\xBF\xBF"},
        {"\x80\xBF", r + r},                     // continuation bytes alone
        {"\xC0\xAF", r + r},                     // overlong two-byte form
        {"\xE0\x80\x80", r + r + r},             // overlong three-byte form
        {"\xED\xA0\x80", r + r + r},             // a surrogate
        {"\xF4\x90\x80\x80", r + r + r + r},     // past U+10FFFF
        {"\xF5\xFF", r + r},                     // never a lead byte
        {"a\xE2\x82" "b", "a" + r + "b"},        // cut short inside: one replacement
        {"op_\xF0\x9F\x98", "op_" + r},          // cut short at the end
        {"\xC3", r},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.bytes));
        std::string repaired = "stale";
        const std::string_view valid = validUtf8(c.bytes, repaired);
        EXPECT_EQ(valid, c.expected);
        // Valid text is handed back as it is, not copied.
        if (c.bytes == c.expected) {
            EXPECT_EQ(valid.data(), c.bytes.data());
        }
    }
}

}  // namespace
}  // namespace profiling
}  // namespace vek
