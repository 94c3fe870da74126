// Interns texts: equal texts get the same stored copy, which stays where it
// is for the pool's life.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "log/TextHash.h"

namespace vek {
namespace profiling {

class TextPool {
public:
    TextPool() : slots_(kFirstSlots) {}

    // The stored copy of `text`, added on first use.
    const std::string& intern(std::string_view text) {
        const uint64_t hash = hashText(text);
        const size_t mask = slots_.size() - 1;
        for (size_t index = hash & mask;; index = (index + 1) & mask) {
            const Slot& slot = slots_[index];
            if (slot.text == nullptr) return insert(text, hash, index);
            if (slot.hash == hash && slot.text->size() == text.size() &&
                sameBytes(slot.text->data(), text.data(), text.size())) {
                return *slot.text;
            }
        }
    }

    // How many distinct texts are stored.
    size_t size() const { return texts_.size(); }

    // Forgets every text; references to them dangle from here on.
    void clear();

private:
    static constexpr size_t kFirstSlots = 64;
    struct Slot {
        uint64_t hash = 0;
        const std::string* text = nullptr;  // null: free
    };
    const std::string& insert(std::string_view text, uint64_t hash, size_t freeSlot);
    void grow();

    std::deque<std::string> texts_;  // a deque never moves its elements
    std::vector<Slot> slots_;        // open addressing; a power of two, at most half full
};

}  // namespace profiling
}  // namespace vek
