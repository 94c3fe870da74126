// Copies of events that outlive the store they were converted into: what a
// summaries-only load keeps of a message after the next one has taken its
// place in the scratch store.
#pragma once

#include <vector>

#include "log/EventStore.h"
#include "log/ProfileEvent.h"

namespace vek {
namespace profiling {

// A deep copy of `event` that refers to nothing of the scratch store: its
// lists of children and its bytes are its own (freed with the copy), its
// detail and the text of a string value are interned in `texts`. Its name is
// shared as it is, so it must already live as long as the copy (a loaded
// event's name is interned in the reader's store).
ProfileEvent lastingCopy(const ProfileEvent& event, EventStore& texts);

// lastingCopy of every event, in order.
std::vector<ProfileEvent> lastingCopies(EventSpan events, EventStore& texts);

}  // namespace profiling
}  // namespace vek
