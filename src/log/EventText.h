// The texts and byte values of an event. A loaded event refers to one copy
// kept in the reader's event store (names and details repeat across every
// execution of a graph, so each is stored once); an event built by hand owns
// its own copy. Either way the field reads like the string or byte vector it
// stands for, and a handle costs 8 bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vek {
namespace profiling {

// A handle to a T that is either kept by a pool (shared, never freed before
// the pool) or owned by the handle alone. Copies of a pooled handle share the
// pooled value; copies of an owning handle copy it.
template <typename T>
class PooledRef {
public:
    PooledRef() = default;
    explicit PooledRef(T value)
        : bits_(reinterpret_cast<uintptr_t>(new T(std::move(value))) | kOwned) {}
    static PooledRef pooled(const T& value) {
        PooledRef ref;
        ref.bits_ = reinterpret_cast<uintptr_t>(&value);
        return ref;
    }

    PooledRef(const PooledRef& other) : bits_(other.bits_) {
        if (other.owned()) bits_ = PooledRef(*other.get()).release();
    }
    PooledRef(PooledRef&& other) noexcept : bits_(other.release()) {}
    PooledRef& operator=(const PooledRef& other) {
        if (this != &other) *this = PooledRef(other);
        return *this;
    }
    PooledRef& operator=(PooledRef&& other) noexcept {
        if (this != &other) {
            reset();
            bits_ = other.release();
        }
        return *this;
    }
    ~PooledRef() { reset(); }

    // Null for an empty handle.
    const T* get() const { return fromBits(bits_); }
    // The value behind what bits() returned, while that handle lives.
    static const T* fromBits(uintptr_t bits) { return reinterpret_cast<const T*>(bits & ~kOwned); }
    bool owned() const { return (bits_ & kOwned) != 0; }
    // The same pooled value, the same owned copy, or both empty.
    bool sameAs(const PooledRef& other) const { return bits_ == other.bits_; }
    uintptr_t bits() const { return bits_; }

private:
    static_assert(alignof(T) >= 2, "the low bit of the address marks ownership");
    static constexpr uintptr_t kOwned = 1;

    uintptr_t release() { return std::exchange(bits_, 0); }
    void reset() {
        if (owned()) delete get();
        bits_ = 0;
    }

    uintptr_t bits_ = 0;
};

// An event's name or detail: reads as a const std::string.
class EventText {
public:
    EventText() = default;
    explicit EventText(std::string text) : ref_(std::move(text)) {}
    // Refers to text kept in a pool that outlives the event.
    static EventText interned(const std::string& pooled) {
        EventText text;
        text.ref_ = PooledRef<std::string>::pooled(pooled);
        return text;
    }

    EventText& operator=(std::string text) {
        ref_ = PooledRef<std::string>(std::move(text));
        return *this;
    }

    const std::string& str() const {
        const std::string* text = ref_.get();
        return text != nullptr ? *text : emptyText();
    }
    operator const std::string&() const { return str(); }
    operator std::string_view() const { return str(); }
    const char* c_str() const { return str().c_str(); }
    const char* data() const { return str().data(); }
    size_t size() const { return str().size(); }
    bool empty() const { return str().empty(); }

    // True for text kept in a pool: for the pool's life it stays where it is
    // and no other text takes its place, so its identity stands for it.
    bool isInterned() const { return ref_.get() != nullptr && !ref_.owned(); }

    // True when both refer to the very same text (then they are equal; the
    // converse holds only among texts of one pool).
    bool sharesTextWith(const EventText& other) const { return ref_.sameAs(other.ref_); }
    // What sharesTextWith compares, to keep beside a copy of the handle.
    uintptr_t identity() const { return ref_.bits(); }
    // The text of the handle with this identity, while that handle lives:
    // read without going through the handle.
    static const std::string& textOf(uintptr_t identity) {
        const std::string* text = PooledRef<std::string>::fromBits(identity);
        return text != nullptr ? *text : emptyText();
    }

    friend bool operator==(const EventText& a, const EventText& b) {
        return a.sharesTextWith(b) || a.str() == b.str();
    }
    friend bool operator!=(const EventText& a, const EventText& b) { return !(a == b); }
    friend bool operator==(const EventText& a, std::string_view b) { return a.str() == b; }
    friend bool operator==(std::string_view a, const EventText& b) { return a == b.str(); }
    friend bool operator!=(const EventText& a, std::string_view b) { return !(a == b); }
    friend bool operator!=(std::string_view a, const EventText& b) { return !(a == b); }
    friend std::ostream& operator<<(std::ostream& out, const EventText& text) {
        return out << text.str();
    }

private:
    static const std::string& emptyText() {
        static const std::string empty;
        return empty;
    }

    PooledRef<std::string> ref_;
};

// An event's raw bytes (object events): reads as a const byte vector.
class EventBytes {
public:
    EventBytes() = default;
    explicit EventBytes(std::vector<uint8_t> bytes) : ref_(std::move(bytes)) {}
    // Refers to bytes kept in a pool that outlives the event.
    static EventBytes pooled(const std::vector<uint8_t>& bytes) {
        EventBytes result;
        result.ref_ = PooledRef<std::vector<uint8_t>>::pooled(bytes);
        return result;
    }

    EventBytes& operator=(std::vector<uint8_t> bytes) {
        ref_ = PooledRef<std::vector<uint8_t>>(std::move(bytes));
        return *this;
    }

    const std::vector<uint8_t>& vector() const {
        const std::vector<uint8_t>* bytes = ref_.get();
        return bytes != nullptr ? *bytes : emptyBytes();
    }
    operator const std::vector<uint8_t>&() const { return vector(); }
    const uint8_t* data() const { return vector().data(); }
    size_t size() const { return vector().size(); }
    bool empty() const { return vector().empty(); }
    auto begin() const { return vector().begin(); }
    auto end() const { return vector().end(); }

    friend bool operator==(const EventBytes& a, const std::vector<uint8_t>& b) {
        return a.vector() == b;
    }
    friend bool operator==(const std::vector<uint8_t>& a, const EventBytes& b) {
        return a == b.vector();
    }
    friend bool operator==(const EventBytes& a, const EventBytes& b) {
        return a.vector() == b.vector();
    }
    friend std::ostream& operator<<(std::ostream& out, const EventBytes& bytes) {
        out << '{';
        const char* separator = "";
        for (uint8_t byte : bytes) {
            out << separator << static_cast<unsigned>(byte);
            separator = ", ";
        }
        return out << '}';
    }

private:
    static const std::vector<uint8_t>& emptyBytes() {
        static const std::vector<uint8_t> empty;
        return empty;
    }

    PooledRef<std::vector<uint8_t>> ref_;
};

}  // namespace profiling
}  // namespace vek
