// The trace in the layout that every trace viewer opens: the same slices as
// the exact trace, with numeric process and thread ids, named processes and
// threads, valid UTF-8 everywhere, and slices of one thread that never
// overlap. One event per line, written as it is built.
#pragma once

#include <cstdint>
#include <ostream>

namespace vek {
namespace profiling {

class VekProfileLogReader;

// What a portable trace holds.
struct PortableTraceShape {
    uint64_t processes = 0;  // one per graph (or one placeholder when there is none)
    uint64_t threads = 0;    // over all processes, extra lanes included
    uint64_t slices = 0;     // complete events, as many as the exact trace has
};

// Writes the trace of the reader's execute averages to `out`:
//
//   {"traceEvents":[
//   {"name":"process_name","ph":"M","pid":1,"tid":0,"args":{"name":"mobilenet_v2"}},
//   ...
//   {"name":"Conv2d_1","pid":1,"tid":1,"ph":"X","ts":35,"dur":396,"args":{...}},
//   ...
//   ],
//   "displayTimeUnit":"ms"}
//
// Graph n is process n + 1, named after the graph; thread 1 "Foreground"
// (sorted on top) holds the waits and ops, thread 2 "Background" the work
// beside them, and a slice that would overlap another of its thread goes to
// an extra thread ("Background 2", ...). A log without executed graphs gets
// one process named "no executed graphs"; a trace without slices is then
// metadata only, which viewers open as an empty trace.
//
// Every op record is checked before anything is written: a log that the
// exact trace refuses is refused here too (the same error, logged once) and
// nothing reaches `out`. Returns false then, or when `out` failed; `shape`,
// when given, receives what was written.
bool writePortableTrace(const VekProfileLogReader& reader, std::ostream& out,
                        PortableTraceShape* shape = nullptr);

}  // namespace profiling
}  // namespace vek
