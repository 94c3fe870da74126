// countTraceSlices of the public header.
#include "VekChrometraceProfilingReader.h"
#include "chrometrace/TraceSlices.h"
#include "reader/VekProfileLogReader.h"

namespace vek {
namespace profiling {
namespace {

class SliceCount : public TraceSliceSink {
public:
    void addSlice(const TraceSlice&) override { ++slices; }
    uint64_t slices = 0;
};

}  // namespace

uint64_t countTraceSlices(IVekProfileLogReader<VisibilityLevel>* reader) {
    const auto* loaded = dynamic_cast<const VekProfileLogReader*>(reader);
    if (loaded == nullptr) return 0;
    SliceCount count;
    return forEachTraceSlice(*loaded, count) ? count.slices : 0;
}

}  // namespace profiling
}  // namespace vek
