// An output stream whose text stays in one buffer it owns. Reports of large
// logs run to tens of megabytes: a string stream would copy them once more on
// the way out, and would grow them by doubling into fresh memory; this buffer
// can be sized up front and is written out straight from where it was built.
#pragma once

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string_view>

namespace vek {
namespace profiling {

class TextBuffer : public std::streambuf {
public:
    // Room for about `expected` bytes; the buffer grows past it if need be.
    void reserve(size_t expected) {
        if (expected > capacity_) grow(expected);
    }
    std::string_view text() const { return std::string_view(pbase(), length()); }

protected:
    int_type overflow(int_type c) override {
        if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
        grow(std::max<size_t>(capacity_ * 2, kFirstCapacity));
        *pptr() = traits_type::to_char_type(c);
        advance(1);
        return c;
    }
    std::streamsize xsputn(const char* text, std::streamsize count) override {
        if (count <= 0) return 0;
        const auto size = static_cast<size_t>(count);
        if (static_cast<size_t>(epptr() - pptr()) < size) {
            grow(std::max(capacity_ * 2, length() + size));
        }
        std::memcpy(pptr(), text, size);
        advance(size);
        return count;
    }

private:
    static constexpr size_t kFirstCapacity = 4096;

    size_t length() const { return static_cast<size_t>(pptr() - pbase()); }

    // pbump takes an int: long texts advance in steps.
    void advance(size_t count) {
        while (count > 0) {
            const size_t step = std::min<size_t>(count, INT_MAX);
            pbump(static_cast<int>(step));
            count -= step;
        }
    }

    // Not value-initialised: only what is written is ever touched.
    void grow(size_t capacity) {
        std::unique_ptr<char[]> larger(new char[capacity]);
        const size_t used = length();
        if (used != 0) std::memcpy(larger.get(), pbase(), used);
        storage_ = std::move(larger);
        capacity_ = capacity;
        setp(storage_.get(), storage_.get() + capacity);
        advance(used);
    }

    std::unique_ptr<char[]> storage_;
    size_t capacity_ = 0;
};

// An output stream over its own TextBuffer.
class TextStream : public std::ostream {
public:
    TextStream() : std::ostream(nullptr) { rdbuf(&buffer_); }
    void reserve(size_t expected) { buffer_.reserve(expected); }
    std::string_view text() const { return buffer_.text(); }

private:
    TextBuffer buffer_;
};

}  // namespace profiling
}  // namespace vek
