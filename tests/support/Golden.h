// Long expected outputs live in files under tests/golden/. A mismatch fails
// with a unified diff; with VEK_UPDATE_GOLDEN=1 in the environment the file
// is rewritten with the actual text instead (review the change with git diff).
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace vek {
namespace profiling {
namespace testlog {

// The path of a golden file, relative to tests/golden/.
std::string goldenPath(const std::string& name);

// Compares `actual` with the golden file `name`:
//   EXPECT_TRUE(matchesGolden(summaryText, "stats/sample_summary.txt"));
::testing::AssertionResult matchesGolden(const std::string& actual, const std::string& name);

}  // namespace testlog
}  // namespace profiling
}  // namespace vek
