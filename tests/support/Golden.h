// Long expected outputs live under tests/golden/; a mismatch fails with a diff, and
// VEK_UPDATE_GOLDEN=1 rewrites the file instead (review it with git diff).
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace vek::profiling::testlog {

// `name` is relative to tests/golden/: matchesGolden(summaryText, "stats/sample_summary.txt").
::testing::AssertionResult matchesGolden(const std::string& actual, const std::string& name);

}  // namespace vek::profiling::testlog
