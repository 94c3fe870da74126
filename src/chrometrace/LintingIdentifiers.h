// Event identifiers of the linting records that the trace and the chrome-trace
// backend listing give a meaning to. The op record itself (404) is
// kOpRecordIdentifier in log/ProfileEvent.h.
#pragma once

#include <cstdint>

namespace vek {
namespace profiling {

// Children of an op record.
constexpr uint32_t kWaitDurationIdentifier = 5001;            // W: wait before the op
constexpr uint32_t kOpBackgroundIdentifier = 5002;            // B: work beside the op
constexpr uint32_t kWaitBackgroundIdentifier = 5003;          // C: work beside the wait
constexpr uint32_t kResourceMaskIdentifier = 5004;            // M: resource bit mask
// Grandchildren naming the background work.
constexpr uint32_t kOpBackgroundNameIdentifier = 5005;        // under 5002
constexpr uint32_t kWaitBackgroundNameIdentifier = 5006;      // under 5003

// Events of this range, with their subtrees, stay out of the backend listing.
constexpr uint32_t kHiddenIdentifierFirst = 9000;
constexpr uint32_t kHiddenIdentifierLast = 9009;

}  // namespace profiling
}  // namespace vek
