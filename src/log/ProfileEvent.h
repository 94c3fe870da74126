// The in-memory event model that loading builds and the reports read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "log/EventText.h"

namespace vek {
namespace profiling {

// Value type codes of an event's value.
enum DataType : uint32_t {
    kDataTypeNone = 0,
    kDataTypeInt64 = 0x0064,
    kDataTypeUInt64 = 0x0164,
    kDataTypeFloat32 = 0x0232,
    kDataTypeFloat64 = 0x0264,
    kDataTypeString = 0x0608,
};

// A tagged 8-byte value. The payload holds the raw bits of an i64, u64,
// f32 (low 4 bytes), f64, or the address of interned, zero-terminated text.
struct EventValue {
    uint32_t dataType = kDataTypeNone;
    uint64_t payload = 0;
};

struct ProfileEvent;

// A list of events kept in the reader's event store: `size` events follow the
// header in memory. Written once by the loader, then only read.
struct StoredEvents {
    size_t size = 0;
    const ProfileEvent* events() const;
    ProfileEvent* events();
};

// The children of an event. Loaded trees keep every list of children in one
// contiguous block of the reader's event store and share it, read-only, with
// every copy of the event; a list built or changed afterwards (a merged
// average, a tree built by hand) is a vector owned by its event. Reading
// never copies; the first change to a shared list gives the event its own
// copy of that one level (its elements still share their children).
class EventList {
public:
    using value_type = ProfileEvent;
    using iterator = ProfileEvent*;
    using const_iterator = const ProfileEvent*;

    EventList() = default;
    EventList(std::vector<ProfileEvent> events);  // NOLINT: built like the vector it stands for
    // Shares a list of the event store, which must outlive every copy.
    static EventList stored(const StoredEvents& list);

    EventList(const EventList& other);
    EventList(EventList&& other) noexcept : bits_(std::exchange(other.bits_, 0)) {}
    EventList& operator=(const EventList& other);
    EventList& operator=(EventList&& other) noexcept;
    ~EventList();

    size_t size() const;
    bool empty() const { return bits_ == 0 || size() == 0; }
    const ProfileEvent* begin() const;
    const ProfileEvent* end() const;
    const ProfileEvent& operator[](size_t index) const;
    const ProfileEvent& at(size_t index) const;
    const ProfileEvent& front() const;
    const ProfileEvent& back() const;

    // Changing access: a shared list becomes the event's own first. These
    // are what a non-const event's list offers, so code that only reads
    // should read through a const reference.
    std::vector<ProfileEvent>& edit();
    ProfileEvent* begin();
    ProfileEvent* end();
    ProfileEvent& operator[](size_t index);
    ProfileEvent& at(size_t index);
    ProfileEvent& front();
    ProfileEvent& back();
    void push_back(const ProfileEvent& event);
    void push_back(ProfileEvent&& event);
    void pop_back();
    void reserve(size_t count);
    void clear();

private:
    static constexpr uintptr_t kOwned = 1;  // the low bit marks an owned vector

    static uintptr_t owning(std::vector<ProfileEvent>* events) {
        return reinterpret_cast<uintptr_t>(events) | kOwned;
    }
    bool owned() const { return (bits_ & kOwned) != 0; }
    std::vector<ProfileEvent>* ownedVector() const {
        return reinterpret_cast<std::vector<ProfileEvent>*>(bits_ & ~kOwned);
    }
    const StoredEvents* storedList() const { return reinterpret_cast<const StoredEvents*>(bits_); }

    uintptr_t bits_ = 0;  // 0: empty
};

// One event of the backend. A loaded event's name, detail, bytes and children
// live in the reader's event store and stay valid for the reader's life, as
// the text of its string values does. (Fields are ordered for size: `unit`
// shares the first eight bytes with `identifier`.)
struct ProfileEvent {
    uint32_t identifier = 0;
    uint32_t unit = 0;
    EventValue value;
    EventBytes bytes;
    EventText name;
    EventText detail;
    uint64_t timestamp = 0;
    uint64_t sampleCount = 1;
    EventList children;
};

inline const ProfileEvent* StoredEvents::events() const {
    return reinterpret_cast<const ProfileEvent*>(this + 1);
}
inline ProfileEvent* StoredEvents::events() { return reinterpret_cast<ProfileEvent*>(this + 1); }

inline EventList::EventList(std::vector<ProfileEvent> events) {
    if (!events.empty()) bits_ = owning(new std::vector<ProfileEvent>(std::move(events)));
}

inline EventList EventList::stored(const StoredEvents& list) {
    EventList result;
    if (list.size != 0) result.bits_ = reinterpret_cast<uintptr_t>(&list);
    return result;
}

inline EventList::EventList(const EventList& other) : bits_(other.bits_) {
    if (other.owned()) bits_ = owning(new std::vector<ProfileEvent>(*other.ownedVector()));
}

inline EventList& EventList::operator=(const EventList& other) {
    if (this != &other) *this = EventList(other);
    return *this;
}

inline EventList& EventList::operator=(EventList&& other) noexcept {
    if (this != &other) {
        if (owned()) delete ownedVector();
        bits_ = std::exchange(other.bits_, 0);
    }
    return *this;
}

inline EventList::~EventList() {
    if (owned()) delete ownedVector();
}

inline size_t EventList::size() const {
    if (bits_ == 0) return 0;
    return owned() ? ownedVector()->size() : storedList()->size;
}

inline const ProfileEvent* EventList::begin() const {
    if (bits_ == 0) return nullptr;
    return owned() ? ownedVector()->data() : storedList()->events();
}

inline const ProfileEvent* EventList::end() const { return begin() + size(); }
inline const ProfileEvent& EventList::operator[](size_t index) const { return begin()[index]; }
inline const ProfileEvent& EventList::front() const { return *begin(); }
inline const ProfileEvent& EventList::back() const { return end()[-1]; }

inline const ProfileEvent& EventList::at(size_t index) const {
    if (index >= size()) throw std::out_of_range("EventList::at");
    return begin()[index];
}

inline std::vector<ProfileEvent>& EventList::edit() {
    if (!owned()) {
        const EventList& shared = *this;
        bits_ = owning(new std::vector<ProfileEvent>(shared.begin(), shared.end()));
    }
    return *ownedVector();
}

inline ProfileEvent* EventList::begin() { return edit().data(); }
inline ProfileEvent* EventList::end() { return begin() + size(); }
inline ProfileEvent& EventList::operator[](size_t index) { return edit()[index]; }
inline ProfileEvent& EventList::at(size_t index) { return edit().at(index); }
inline ProfileEvent& EventList::front() { return edit().front(); }
inline ProfileEvent& EventList::back() { return edit().back(); }
inline void EventList::push_back(const ProfileEvent& event) { edit().push_back(event); }
inline void EventList::push_back(ProfileEvent&& event) { edit().push_back(std::move(event)); }
inline void EventList::pop_back() { edit().pop_back(); }
inline void EventList::reserve(size_t count) { edit().reserve(count); }
inline void EventList::clear() { *this = EventList(); }

// A read-only view of a list of events, whichever way it is held: what the
// report writers walk.
class EventSpan {
public:
    EventSpan(const std::vector<ProfileEvent>& events)
        : first_(events.data()), size_(events.size()) {}
    EventSpan(const EventList& events) : first_(events.begin()), size_(events.size()) {}
    const ProfileEvent* begin() const { return first_; }
    const ProfileEvent* end() const { return first_ + size_; }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    const ProfileEvent& operator[](size_t index) const { return first_[index]; }

private:
    const ProfileEvent* first_;
    size_t size_;
};

// One timed call with its events.
struct ExecutionSample {
    uint64_t netRunUs = 0;  // the call's duration
    uint64_t auxValue = 0;  // the message timestamp
    std::vector<ProfileEvent> events;
};

// The calls of one graph, in log order.
struct GraphSamples {
    std::string graphName;
    std::vector<ExecutionSample> samples;
};

// One call under a graph name.
struct NamedSample {
    std::string graphName;
    uint64_t netRunUs = 0;
    uint64_t auxValue = 0;
    std::vector<ProfileEvent> events;
};

// Event identifiers that carry meaning for the reports.
constexpr uint32_t kInitEventIdentifier = 100;
constexpr uint32_t kOpRecordIdentifier = 404;
constexpr uint32_t kQueueWaitIdentifier = 405;

// Event units.
enum EventUnit : uint32_t {
    kUnitMicroseconds = 1,
    kUnitBytes = 2,
    kUnitCycles = 3,
    kUnitCount = 4,
    kUnitObject = 5,
    kUnitNone = 6,
};

}  // namespace profiling
}  // namespace vek
