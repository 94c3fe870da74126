// Builders for hand-made events and calls in the statistics tests, and a
// text form of event trees to compare them by.
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

// "name=payload", then "xN" for a sample count other than 1, ":tN" for a
// value type other than u64 and the children in parentheses. `full` adds
// every other field.
inline std::string treeText(EventSpan events, bool full = false) {
    std::string text;
    for (const ProfileEvent& e : events) {
        if (!text.empty()) text += ' ';
        text += e.name.str() + "=" + std::to_string(e.value.payload);
        if (e.sampleCount != 1) text += "x" + std::to_string(e.sampleCount);
        if (e.value.dataType != kDataTypeUInt64) text += ":t" + std::to_string(e.value.dataType);
        if (full) {
            text += "#" + std::to_string(e.identifier) + "u" + std::to_string(e.unit) + "@" +
                    std::to_string(e.timestamp) + "[" + e.detail.str() + "]" +
                    std::string(e.bytes.begin(), e.bytes.end());
        }
        if (!e.children.empty()) text += "(" + treeText(e.children, full) + ")";
    }
    return text;
}

}  // namespace testdata
}  // namespace profiling
}  // namespace vek
