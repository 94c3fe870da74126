#include "log/TextPool.h"

namespace vek {
namespace profiling {

const std::string& TextPool::insert(std::string_view text, uint64_t hash, size_t freeSlot) {
    texts_.emplace_back(text);
    const std::string& stored = texts_.back();
    slots_[freeSlot] = Slot{hash, &stored};
    if (texts_.size() * 2 > slots_.size()) grow();
    return stored;
}

void TextPool::clear() {
    if (texts_.empty()) return;
    texts_.clear();
    slots_.assign(kFirstSlots, Slot());
}

void TextPool::grow() {
    std::vector<Slot> larger(slots_.size() * 2);
    const size_t mask = larger.size() - 1;
    for (const Slot& slot : slots_) {
        if (slot.text == nullptr) continue;
        size_t index = slot.hash & mask;
        while (larger[index].text != nullptr) index = (index + 1) & mask;
        larger[index] = slot;
    }
    slots_.swap(larger);
}

}  // namespace profiling
}  // namespace vek
