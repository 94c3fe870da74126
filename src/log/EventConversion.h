// Turns the events of a log message into the in-memory event tree.
#pragma once

#include <list>
#include <string>
#include <vector>

#include "log/EventStore.h"
#include "log/ProfileEvent.h"
#include "profile_log_generated.h"

namespace vek {
namespace profiling {

using LogEventVector = flatbuffers::Vector<flatbuffers::Offset<fb::LogEvent>>;

// Converts one event with its sub-events (depth first, file order). Names,
// details, bytes and the lists of sub-events are kept in `store`; the text of
// a string value is appended to `internedStrings`, and the value holds the
// address of that stored copy. All of it outlives the chunk buffer.
ProfileEvent convertEvent(const fb::LogEvent& event, EventStore& store,
                          std::list<std::string>& internedStrings);

// Appends the converted events to `out` in vector order; null appends nothing.
void convertEvents(const LogEventVector* events, EventStore& store,
                   std::list<std::string>& internedStrings, std::vector<ProfileEvent>& out);

// As convertEvents, for events that are needed only until the next message
// is read: names are interned in `names` (they repeat from call to call),
// everything else goes to `scratch`, and the value of a string event points
// at its text in the chunk buffer.
void convertEventsForMessage(const LogEventVector* events, EventStore& names, EventStore& scratch,
                             std::vector<ProfileEvent>& out);

}  // namespace profiling
}  // namespace vek
