#include "log/EventListArena.h"

#include <algorithm>
#include <cstddef>
#include <new>

// On Linux, blocks are mapped directly, populated; sanitizer builds use the
// heap, whose bounds the sanitizers check. GCC says so with a macro, clang
// through __has_feature.
#if defined(__SANITIZE_ADDRESS__)
#define VEK_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VEK_ADDRESS_SANITIZER 1
#endif
#endif
#if defined(__linux__) && !defined(VEK_ADDRESS_SANITIZER)
#define VEK_MAP_EVENT_BLOCKS 1
#include <sys/mman.h>
#endif

namespace vek {
namespace profiling {
namespace {

// Lists are cut from blocks of this size; a longer list gets a block of its own.
constexpr size_t kBlockSize = size_t{1} << 20;
// The first block of an arena; each next one is twice the size, up to kBlockSize.
constexpr size_t kFirstBlockSize = size_t{16} << 10;

}  // namespace

StoredEvents& EventListArena::allocate(size_t count) {
    const size_t bytes = sizeof(StoredEvents) + count * sizeof(ProfileEvent);
    if (bytes > kBlockSize) {
        // Placed before the block being filled, which goes on being filled.
        const auto at = blocks_.begin() + static_cast<std::ptrdiff_t>(filling_);
        Block& own = *blocks_.insert(at, newBlock(bytes));
        if (blocks_.size() > 1) ++filling_;
        own.used = bytes;
        own.ownList = true;
        return *new (own.storage.get()) StoredEvents{count};
    }
    while (filling_ < blocks_.size() &&
           blocks_[filling_].capacity - blocks_[filling_].used < bytes) {
        ++filling_;
    }
    if (filling_ == blocks_.size()) {
        nextBlockSize_ = nextBlockSize_ == 0 ? kFirstBlockSize
                                             : std::min(kBlockSize, nextBlockSize_ * 2);
        blocks_.push_back(newBlock(std::max(nextBlockSize_, bytes)));
    }
    Block& block = blocks_[filling_];
    auto* list = new (block.storage.get() + block.used) StoredEvents{count};
    block.used += bytes;
    return *list;
}

void EventListArena::rewind() {
    // Blocks of one long list are not worth keeping.
    blocks_.erase(std::remove_if(blocks_.begin(), blocks_.end(),
                                 [](const Block& block) { return block.ownList; }),
                  blocks_.end());
    for (Block& block : blocks_) block.used = 0;
    filling_ = 0;
}

// Full-size blocks are written in full soon after they are made, so their
// pages are all mapped at once: one system call instead of a page fault per
// page, which costs dearly under virtualisation. Smaller ones come from the
// heap.
EventListArena::Block EventListArena::newBlock(size_t capacity) {
    bool mapped = false;
    void* storage = nullptr;
#if defined(VEK_MAP_EVENT_BLOCKS)
    if (capacity >= kBlockSize) {
        storage = mmap(nullptr, capacity, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
        if (storage == MAP_FAILED) throw std::bad_alloc();
        mapped = true;
    }
#endif
    // Not value-initialised: every byte handed out is written by its user.
    if (!mapped) storage = new unsigned char[capacity];
    return Block{std::unique_ptr<unsigned char[], BlockRelease>(
                     static_cast<unsigned char*>(storage), BlockRelease{capacity, mapped}),
                 capacity, 0, false};
}

void EventListArena::BlockRelease::operator()(unsigned char* storage) const {
#if defined(VEK_MAP_EVENT_BLOCKS)
    if (mapped) {
        munmap(storage, size);
        return;
    }
#endif
    delete[] storage;
}

}  // namespace profiling
}  // namespace vek
