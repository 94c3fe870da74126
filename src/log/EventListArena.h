// Room for the lists of events of loaded event trees, handed out in order
// from large blocks, so that a tree lies in contiguous memory and a whole
// log's trees are freed in a few steps.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "log/ProfileEvent.h"

namespace vek {
namespace profiling {

class EventListArena {
public:
    EventListArena() = default;
    EventListArena(const EventListArena&) = delete;
    EventListArena& operator=(const EventListArena&) = delete;

    // A list header followed by room for `count` events that the caller
    // constructs in place. The events' destructors are never run: they may
    // only hold pooled texts and bytes and lists of the same arena.
    StoredEvents& allocate(size_t count);

    // Forgets every list handed out but keeps the blocks, to be filled again:
    // storage that holds one message at a time then stays in the cache and
    // costs no fresh pages.
    void rewind();

private:
    struct BlockRelease {
        size_t size;
        bool mapped;
        void operator()(unsigned char* storage) const;
    };
    struct Block {
        std::unique_ptr<unsigned char[], BlockRelease> storage;
        size_t capacity = 0;
        size_t used = 0;
        bool ownList = false;  // made for one list longer than a block
    };
    static Block newBlock(size_t capacity);

    std::vector<Block> blocks_;
    size_t filling_ = 0;  // the block being filled; those after it are spare
    // Blocks start small and double up to their full size, so that an arena
    // that holds a few small trees stays small.
    size_t nextBlockSize_ = 0;
};

}  // namespace profiling
}  // namespace vek
