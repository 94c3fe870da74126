// The linting timeline as a sequence of slices, shared by every trace layout.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vek {
namespace profiling {

class VekProfileLogReader;
struct GraphSummary;

// One slice of the timeline. The texts are valid only during the call that
// receives the slice.
struct TraceSlice {
    std::string_view name;
    uint64_t ts = 0;
    uint64_t dur = 0;
    bool foreground = false;
    std::string_view resources;  // the op's resource label; empty on other slices
    std::string_view cname;      // "grey" on Wait slices; empty on others
};

// Receives the slices of every graph of the execute averages, in order.
class TraceSliceSink {
public:
    virtual ~TraceSliceSink() = default;
    // Called once per graph before its slices, also for a graph without any.
    virtual void beginGraph(size_t /*graphIndex*/, const GraphSummary& /*graph*/) {}
    virtual void addSlice(const TraceSlice& slice) = 0;
};

// Lays every op record (404) of the execute averages on one running cursor
// that is never reset: a grey "Wait" slice when the op waited, then the op
// slice, each followed by its background partner at the same start. An op
// record lacking any of its 5001..5004 children refuses the whole log: the
// error is logged once and false is returned, after the slices of the op
// records before it have been handed on.
bool forEachTraceSlice(const VekProfileLogReader& reader, TraceSliceSink& sink);

}  // namespace profiling
}  // namespace vek
