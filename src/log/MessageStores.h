// The stores that hold the events of one message each, for a load that keeps
// no message: the store of the message being read, and those that summaries
// hold on to because they took their message's events (the longest and the
// shortest call so far). A store that nothing holds any more is emptied and
// used again, so there are never more of them than holders, plus one, and
// the room of each is reused rather than taken afresh.
#pragma once

#include <memory>
#include <vector>

#include "log/EventStore.h"

namespace vek {
namespace profiling {

class MessageStores {
public:
    // The store for the next message, empty.
    EventStore& startMessage();
    // Shares the current message's store with a holder, who keeps it while
    // it needs the events.
    std::shared_ptr<EventStore> holdCurrent() { return current_; }
    // Takes back a store its holder no longer needs.
    void release(std::shared_ptr<EventStore> store);

private:
    std::shared_ptr<EventStore> current_;
    std::vector<std::shared_ptr<EventStore>> spare_;
};

}  // namespace profiling
}  // namespace vek
