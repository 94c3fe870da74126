// The diff of two logs' op figures: graphs matched by name, ops by name and
// occurrence.
#pragma once

#include <cstdint>
#include <optional>

#include "VekChrometraceProfilingReader.h"

namespace vek {
namespace profiling {

LogDiff compareFigures(const LogFigures& base, const LogFigures& changed);

// new - base, held within the int64 range.
int64_t signedDelta(uint64_t base, uint64_t changed);
// The change in percent of the base; none for a base of 0.
std::optional<double> percentChange(uint64_t base, uint64_t changed);

}  // namespace profiling
}  // namespace vek
