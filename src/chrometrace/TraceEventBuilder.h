// Builds the Chrome trace document of a linting log from the averaged op
// records of every graph's executions.
#pragma once

#include <rapidjson/document.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace vek {
namespace profiling {

class VekProfileLogReader;

// Lays every op record (404) of the execute averages on one running cursor:
// a grey "Wait" slice when the op waited, then the op slice, each followed by
// its background partner. On success adds "traceEvents" to `document` (made
// an object if it is not one) and returns true. An op record lacking any of
// its 5001..5004 children refuses the whole log: the error is logged, false
// is returned and the document is left without "traceEvents".
bool buildTraceDocument(const VekProfileLogReader& reader, rapidjson::Document& document);

// Appends one complete event to `events`, members in the order name, pid,
// tid, ph, ts, dur, cname, args {Duration, Resources}. "cname" and
// "Resources" appear only when non-empty. `resources` and `cname` are
// consumed (left empty). Strings are copied into `allocator`.
void addTraceEvent(rapidjson::Value& events, rapidjson::Document::AllocatorType& allocator,
                   std::string_view name, uint64_t ts, uint64_t dur, bool foreground,
                   std::string&& resources, std::string&& cname);

}  // namespace profiling
}  // namespace vek
