// The figures of the bundled sample logs (built from examples/*.json).
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "VekChrometraceProfilingReader.h"
#include "reader/VekProfileLogReader.h"
#include "views/LogFigureCollector.h"

namespace vek {
namespace profiling {
namespace testviews {

#ifdef VEK_SAMPLE_DIR
// The path is the file name alone, so that texts do not depend on the build directory.
inline LogFigures sampleFigures(const std::string& name) {
    VekProfileLogReader reader(std::string(VEK_SAMPLE_DIR) + "/" + name, VisibilityLevel(127));
    EXPECT_TRUE(reader.loadLog(false)) << name;
    LogFigures figures = collectFigures(reader);
    figures.logPath = name;
    return figures;
}
#endif

}  // namespace testviews
}  // namespace profiling
}  // namespace vek
