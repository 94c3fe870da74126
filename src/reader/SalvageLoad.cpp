// The public operations on cut and corrupt logs: a salvage load and where
// the last load broke off.
#include "VekChrometraceProfilingReader.h"
#include "reader/VekProfileLogReader.h"

namespace vek {
namespace profiling {

bool setSalvageLoad(IVekProfileLogReader<VisibilityLevel>* reader, bool salvage) {
    auto* ours = dynamic_cast<VekProfileLogReader*>(reader);
    if (ours == nullptr) return false;
    ours->salvageLoad = salvage;
    return true;
}

ChunkProblem loadBreak(IVekProfileLogReader<VisibilityLevel>* reader) {
    const auto* ours = dynamic_cast<const VekProfileLogReader*>(reader);
    return ours != nullptr ? ours->loadBreak : ChunkProblem{};
}

}  // namespace profiling
}  // namespace vek
