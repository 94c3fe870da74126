#include "log/MessageStores.h"

#include <utility>

namespace vek {
namespace profiling {

EventStore& MessageStores::startMessage() {
    // A store some holder still shares is left to it.
    if (current_ == nullptr || current_.use_count() > 1) {
        if (spare_.empty()) {
            current_ = std::make_shared<EventStore>();
        } else {
            current_ = std::move(spare_.back());
            spare_.pop_back();
        }
    }
    current_->clear();
    return *current_;
}

void MessageStores::release(std::shared_ptr<EventStore> store) {
    // Held elsewhere too (or the current one): it is not ours to reuse yet.
    if (store == nullptr || store.use_count() > 1) return;
    spare_.push_back(std::move(store));
}

}  // namespace profiling
}  // namespace vek
