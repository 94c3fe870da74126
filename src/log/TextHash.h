// Hashing and comparing the short texts that events are named with, in a few
// word-sized steps: loading a large log hashes or compares millions of names.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace vek {
namespace profiling {
namespace textword {

inline uint64_t load64(const char* from) {
    uint64_t word;
    std::memcpy(&word, from, sizeof word);
    return word;
}

inline uint64_t load32(const char* from) {
    uint32_t word;
    std::memcpy(&word, from, sizeof word);
    return word;
}

inline uint64_t byteAt(const char* text, size_t index) {
    return static_cast<uint8_t>(text[index]);
}

}  // namespace textword

// A fast hash of the whole text (not meant to resist chosen collisions):
// eight bytes at a time, each folded in with a multiply; the last word may
// overlap the one before it.
inline uint64_t hashText(std::string_view text) {
    using namespace textword;
    constexpr uint64_t kMultiplier = 0x9E3779B97F4A7C15ull;
    const char* at = text.data();
    const size_t size = text.size();
    uint64_t hash = (size + 1) * kMultiplier;
    auto fold = [&hash](uint64_t word) {
        hash = (hash ^ word) * kMultiplier;
        hash ^= hash >> 32;
    };
    if (size >= 8) {
        for (size_t offset = 0; offset + 8 < size; offset += 8) fold(load64(at + offset));
        fold(load64(at + size - 8));
    } else if (size >= 4) {
        fold(load32(at) | load32(at + size - 4) << 32);
    } else if (size > 0) {
        fold(byteAt(at, 0) | byteAt(at, size / 2) << 8 | byteAt(at, size - 1) << 16);
    }
    return hash ^ (hash >> 29);
}

struct TextHash {
    size_t operator()(std::string_view text) const { return static_cast<size_t>(hashText(text)); }
};

// Whether two texts of `size` bytes are equal. Texts of 8 to 32 bytes (most
// event names) are compared with four overlapping word loads, which together
// cover every byte, rather than with a call.
inline bool sameBytes(const char* a, const char* b, size_t size) {
    using textword::load64;
    if (size >= 8 && size <= 32) {
        const size_t last = size - 8;
        const size_t middle = size > 16 ? size - 16 : 0;
        return load64(a) == load64(b) && load64(a + last) == load64(b + last) &&
               load64(a + middle / 2) == load64(b + middle / 2) &&
               load64(a + middle) == load64(b + middle);
    }
    return std::memcmp(a, b, size) == 0;
}

}  // namespace profiling
}  // namespace vek
