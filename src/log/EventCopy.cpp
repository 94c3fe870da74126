#include "log/EventCopy.h"

#include <cstdint>
#include <new>
#include <string_view>

namespace vek {
namespace profiling {
namespace {

void copyInto(ProfileEvent& copy, const ProfileEvent& event, EventStore& store) {
    copy.identifier = event.identifier;
    copy.unit = event.unit;
    copy.value = event.value;
    if (event.value.dataType == kDataTypeString && event.value.payload != 0) {
        const auto* text = reinterpret_cast<const char*>(static_cast<uintptr_t>(event.value.payload));
        copy.value.payload = reinterpret_cast<uintptr_t>(store.intern(std::string_view(text)).c_str());
    }
    if (!event.bytes.empty()) copy.bytes = store.keepBytes(event.bytes.data(), event.bytes.size());
    // Loaded names are interned already; one made by hand is not.
    copy.name = event.name.isInterned() ? event.name : store.intern(event.name);
    if (!event.detail.empty()) copy.detail = store.intern(event.detail);
    copy.timestamp = event.timestamp;
    copy.sampleCount = event.sampleCount;
    if (event.children.empty()) return;
    StoredEvents& children = store.newList(event.children.size());
    ProfileEvent* slot = children.events();
    for (const ProfileEvent& child : event.children) copyInto(*new (slot++) ProfileEvent(), child, store);
    copy.children = EventList::stored(children);
}

}  // namespace

ProfileEvent lastingCopy(const ProfileEvent& event, EventStore& store) {
    ProfileEvent copy;
    copyInto(copy, event, store);
    return copy;
}

std::vector<ProfileEvent> lastingCopies(EventSpan events, EventStore& store) {
    std::vector<ProfileEvent> copies(events.size());
    for (size_t i = 0; i < events.size(); ++i) copyInto(copies[i], events[i], store);
    return copies;
}

}  // namespace profiling
}  // namespace vek
