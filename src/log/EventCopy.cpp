#include "log/EventCopy.h"

#include <cstdint>
#include <string_view>

namespace vek {
namespace profiling {

ProfileEvent lastingCopy(const ProfileEvent& event, EventStore& texts) {
    ProfileEvent copy;
    copy.identifier = event.identifier;
    copy.unit = event.unit;
    copy.value = event.value;
    if (event.value.dataType == kDataTypeString && event.value.payload != 0) {
        const auto* text = reinterpret_cast<const char*>(static_cast<uintptr_t>(event.value.payload));
        copy.value.payload = reinterpret_cast<uintptr_t>(texts.intern(std::string_view(text)).c_str());
    }
    if (!event.bytes.empty()) copy.bytes = event.bytes.vector();
    copy.name = event.name;
    if (!event.detail.empty()) copy.detail = texts.intern(event.detail);
    copy.timestamp = event.timestamp;
    copy.sampleCount = event.sampleCount;
    if (!event.children.empty()) copy.children = lastingCopies(event.children, texts);
    return copy;
}

std::vector<ProfileEvent> lastingCopies(EventSpan events, EventStore& texts) {
    std::vector<ProfileEvent> copies;
    copies.reserve(events.size());
    for (const ProfileEvent& event : events) copies.push_back(lastingCopy(event, texts));
    return copies;
}

}  // namespace profiling
}  // namespace vek
