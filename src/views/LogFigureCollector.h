// The figures of the op views, read from the per-graph execute summaries of
// a loaded reader (never from its executions).
#pragma once

#include "VekChrometraceProfilingReader.h"

namespace vek {
namespace profiling {

class VekProfileLogReader;

LogFigures collectFigures(const VekProfileLogReader& reader);

}  // namespace profiling
}  // namespace vek
