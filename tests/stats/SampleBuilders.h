// Builders for hand-made events and calls in the statistics tests.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "log/ProfileEvent.h"

namespace vek {
namespace profiling {
namespace testdata {

inline ProfileEvent event(std::string name, uint64_t payload, std::vector<ProfileEvent> children = {},
                          uint32_t unit = kUnitMicroseconds, uint32_t dataType = kDataTypeUInt64) {
    ProfileEvent result;
    result.name = std::move(name);
    result.value.dataType = dataType;
    result.value.payload = payload;
    result.unit = unit;
    result.children = std::move(children);
    return result;
}

inline ProfileEvent queueWait(uint64_t payload, std::vector<ProfileEvent> children = {}) {
    ProfileEvent result = event("Queue Wait", payload, std::move(children));
    result.identifier = kQueueWaitIdentifier;
    return result;
}

inline ExecutionSample sample(uint64_t netRunUs, std::vector<ProfileEvent> events = {},
                              uint64_t auxValue = 0) {
    return ExecutionSample{netRunUs, auxValue, std::move(events)};
}

}  // namespace testdata
}  // namespace profiling
}  // namespace vek
