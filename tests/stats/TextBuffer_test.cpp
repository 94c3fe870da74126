#include "stats/TextBuffer.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <locale>
#include <sstream>
#include <string>

namespace vek {
namespace profiling {
namespace {

// Writes the same mixed text to any stream.
void writeRows(std::ostream& out, int rows) {
    out << std::fixed << std::setprecision(2);
    for (int i = 0; i < rows; ++i) {
        out << i << ',' << static_cast<uint64_t>(i) * 1234567u << ",row " << 0.25 * i;
        out.put('\n');
        out.write("tail", 4);
    }
    out.flush();
}

TEST(TextBufferTest, HoldsExactlyWhatAStringStreamWould) {
    for (size_t reserved : {0u, 10u, 1u << 20}) {
        std::ostringstream expected;
        expected.imbue(std::locale::classic());
        TextStream actual;
        actual.imbue(std::locale::classic());
        actual.reserve(reserved);
        // Far past the first capacity and past any reserve, so it grows.
        writeRows(expected, 20000);
        writeRows(actual, 20000);
        EXPECT_TRUE(actual.good());
        ASSERT_EQ(actual.text().size(), expected.str().size()) << reserved;
        EXPECT_TRUE(actual.text() == expected.str()) << reserved;
    }
    TextStream empty;
    EXPECT_TRUE(empty.text().empty());
    empty << "" << std::string();  // nothing to copy, before any storage exists
    EXPECT_TRUE(empty.good());
    EXPECT_TRUE(empty.text().empty());
}

}  // namespace
}  // namespace profiling
}  // namespace vek
