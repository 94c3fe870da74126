// Long expected outputs live under tests/golden/; VEK_UPDATE_GOLDEN=1 rewrites them (review with git diff).
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace vek::profiling::testlog {

// `name` is relative to tests/golden/: matchesGolden(summaryText, "stats/sample_summary.txt").
::testing::AssertionResult matchesGolden(const std::string& actual, const std::string& name);

}  // namespace vek::profiling::testlog
