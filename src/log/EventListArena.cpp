#include "log/EventListArena.h"

#include <algorithm>
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

// Lists are cut from blocks that double in size from the first to the
// largest, so that a small log does not map (and fault in) a megabyte; a list
// longer than the largest block gets a block of its own.
constexpr size_t kFirstBlockSize = size_t{64} << 10;
constexpr size_t kBlockSize = size_t{1} << 20;

}  // namespace

StoredEvents& EventListArena::allocate(size_t count) {
    const size_t bytes = sizeof(StoredEvents) + count * sizeof(ProfileEvent);
    if (bytes > kBlockSize) {
        // Placed before the block being filled, which goes on being filled.
        Block& own = *blocks_.insert(blocks_.empty() ? blocks_.end() : blocks_.end() - 1,
                                     newBlock(bytes));
        own.used = bytes;
        return *new (own.storage.get()) StoredEvents{count};
    }
    if (blocks_.empty() || blocks_.back().capacity - blocks_.back().used < bytes) {
        const size_t grown = blocks_.empty() ? kFirstBlockSize : 2 * blocks_.back().capacity;
        blocks_.push_back(newBlock(std::min(std::max(grown, bytes), kBlockSize)));
    }
    Block& block = blocks_.back();
    auto* list = new (block.storage.get() + block.used) StoredEvents{count};
    block.used += bytes;
    return *list;
}

// Blocks are written in full soon after they are made, so their pages are all
// mapped at once: one system call instead of a page fault per page, which
// costs dearly under virtualisation.
EventListArena::Block EventListArena::newBlock(size_t capacity) {
#if defined(VEK_MAP_EVENT_BLOCKS)
    void* storage = mmap(nullptr, capacity, PROT_READ | PROT_WRITE,
                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    if (storage == MAP_FAILED) throw std::bad_alloc();
#else
    // Not value-initialised: every byte handed out is written by its user.
    void* storage = new unsigned char[capacity];
#endif
    return Block{std::unique_ptr<unsigned char[], BlockRelease>(
                     static_cast<unsigned char*>(storage), BlockRelease{capacity}),
                 capacity, 0};
}

void EventListArena::BlockRelease::operator()(unsigned char* storage) const {
#if defined(VEK_MAP_EVENT_BLOCKS)
    munmap(storage, size);
#else
    delete[] storage;
#endif
}

}  // namespace profiling
}  // namespace vek
