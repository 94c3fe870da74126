// What a reader's loaded events refer to: every distinct name and detail
// once, the byte values, and every list of children in large contiguous
// blocks. Nothing is freed before the store, so events may share all of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "log/EventListArena.h"
#include "log/EventText.h"
#include "log/ProfileEvent.h"
#include "log/TextHash.h"
#include "log/TextPool.h"

namespace vek {
namespace profiling {

// Where a reader keeps what its loaded events refer to.
class EventStore {
public:
    EventStore() = default;
    EventStore(const EventStore&) = delete;
    EventStore& operator=(const EventStore&) = delete;

    // A name or detail, stored once.
    EventText intern(std::string_view text) { return EventText::interned(texts_.intern(text)); }

    // The name of the event at `position` among its siblings, `depth` levels
    // down its call's tree. Calls repeat their trees, so the few names last
    // seen at the same place are compared first, before any hashing.
    EventText internName(std::string_view text, size_t depth, size_t position) {
        if (depth >= kRememberedDepths || position >= kRememberedPositions) return intern(text);
        std::vector<RecentNames>& level = namesByPlace_[depth];
        if (position >= level.size()) level.resize(position + 1);
        RecentNames& recent = level[position];
        for (const std::string* name : recent.names) {
            if (name != nullptr && name->size() == text.size() &&
                sameBytes(name->data(), text.data(), text.size())) {
                return EventText::interned(*name);
            }
        }
        const std::string& stored = texts_.intern(text);
        recent.names[recent.next] = &stored;
        recent.next = (recent.next + 1) % kRecentNames;
        return EventText::interned(stored);
    }

    // A byte value, stored as it is.
    EventBytes keepBytes(const uint8_t* data, size_t size);
    // An empty list of `count` events, to be constructed in place.
    StoredEvents& newList(size_t count) { return lists_.allocate(count); }

    size_t distinctTexts() const { return texts_.size(); }

    // Forgets everything stored, keeping the room of the lists for reuse: for
    // a store that holds the events of one message at a time.
    void clear();

private:
    // Places beyond these are interned without a remembered guess.
    static constexpr size_t kRememberedDepths = 16;
    static constexpr size_t kRememberedPositions = 4096;
    // Names remembered per place: enough for a place whose name varies among
    // a handful (the background work of an op).
    static constexpr size_t kRecentNames = 4;
    struct RecentNames {
        const std::string* names[kRecentNames] = {};
        size_t next = 0;
    };

    TextPool texts_;
    std::vector<RecentNames> namesByPlace_[kRememberedDepths];
    std::deque<std::vector<uint8_t>> bytes_;
    EventListArena lists_;
};

}  // namespace profiling
}  // namespace vek
