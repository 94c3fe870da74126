// Long expected outputs live in files under tests/golden/. A mismatch fails
// with a unified diff; with VEK_UPDATE_GOLDEN=1 in the environment the file
// is rewritten with the actual text instead (review the change with git diff).
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace vek::profiling::testlog {

// Compares `actual` with the golden file `name`, relative to tests/golden/:
//   EXPECT_TRUE(matchesGolden(summaryText, "stats/sample_summary.txt"));
::testing::AssertionResult matchesGolden(const std::string& actual, const std::string& name);

}  // namespace vek::profiling::testlog
