#include "log/EventStore.h"

namespace vek {
namespace profiling {

EventBytes EventStore::keepBytes(const uint8_t* data, size_t size) {
    bytes_.emplace_back(data, data + size);
    return EventBytes::pooled(bytes_.back());
}

void EventStore::clear() {
    texts_.clear();
    for (std::vector<RecentNames>& level : namesByPlace_) level.clear();
    bytes_.clear();
    lists_.rewind();
}

}  // namespace profiling
}  // namespace vek
