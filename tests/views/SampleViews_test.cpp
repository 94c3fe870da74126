// The top and diff views of the bundled sample logs, as the README shows them.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "VekChrometraceProfilingReader.h"
#include "support/Golden.h"
#include "views/SampleFigures.h"

namespace vek {
namespace profiling {
namespace {

#ifdef VEK_SAMPLE_DIR
using testviews::sampleFigures;

TEST(SampleViewsTest, TopAndDiffOfTheSamples) {
    const LogFigures base = sampleFigures("linting_sample.log");
    const LogFigures changed = sampleFigures("linting_sample_changed.log");
    std::ostringstream top, topByName, diff, diffAbove;
    ASSERT_TRUE(writeTopView(base, TopViewOptions{}, top));
    TopViewOptions byName;
    byName.order = TopOrder::Name;
    byName.limit = 3;
    byName.graphs = {"yolo_tiny"};
    ASSERT_TRUE(writeTopView(base, byName, topByName));
    const LogDiff changes = compareLogFigures(base, changed);
    ASSERT_TRUE(writeDiffView(changes, DiffViewOptions{}, diff));
    DiffViewOptions above;
    above.thresholdPercent = 5.0;
    ASSERT_TRUE(writeDiffView(changes, above, diffAbove));
    EXPECT_TRUE(testlog::matchesGolden(top.str(), "views/top_sample.txt"));
    EXPECT_TRUE(testlog::matchesGolden(topByName.str(), "views/top_sample_by_name.txt"));
    EXPECT_TRUE(testlog::matchesGolden(diff.str(), "views/diff_sample.txt"));
    EXPECT_TRUE(testlog::matchesGolden(diffAbove.str(), "views/diff_sample_threshold.txt"));
}
#endif

}  // namespace
}  // namespace profiling
}  // namespace vek
