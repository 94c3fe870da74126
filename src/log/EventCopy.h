// Copies of events that outlive the store they were converted into: what a
// summaries-only load keeps of a message once the message's store is used
// for another.
#pragma once

#include <vector>

#include "log/EventStore.h"
#include "log/ProfileEvent.h"

namespace vek {
namespace profiling {

// A deep copy of `event` that refers to `store` alone: its lists of children,
// its bytes, its detail and the text of a string value are kept there. An
// interned name is shared as it is, so its pool must live as long as `store`
// (a loaded event's name is interned in the reader's store).
ProfileEvent lastingCopy(const ProfileEvent& event, EventStore& store);

// lastingCopy of every event, in order.
std::vector<ProfileEvent> lastingCopies(EventSpan events, EventStore& store);

}  // namespace profiling
}  // namespace vek
