// Turns the events of a log message into the in-memory event tree.
#pragma once

#include <list>
#include <string>
#include <vector>

#include "log/EventStore.h"
#include "log/LogEventFields.h"
#include "log/ProfileEvent.h"
#include "profile_log_generated.h"

namespace vek {
namespace profiling {

// Converts one event with its sub-events (depth first, file order). Names,
// details, bytes and the lists of sub-events are kept in `store`; the text of
// a string value is appended to `internedStrings`, and the value holds the
// address of that stored copy. All of it outlives the chunk buffer.
ProfileEvent convertEvent(const fb::LogEvent& event, EventStore& store,
                          std::list<std::string>& internedStrings);

// Appends the converted events to `out` in vector order; null appends nothing.
void convertEvents(const LogEventVector* events, EventStore& store,
                   std::list<std::string>& internedStrings, std::vector<ProfileEvent>& out);

// As convertEvents, for the events of one message, kept apart from the
// others so that their room can be used again: names are interned in `names`
// (they repeat from call to call), everything else, the text of string values
// included, goes to `messageStore`.
void convertEventsForMessage(const LogEventVector* events, EventStore& names,
                             EventStore& messageStore, std::vector<ProfileEvent>& out);
// One event, with its sub-events, converted as convertEventsForMessage does.
ProfileEvent convertEventForMessage(const fb::LogEvent& event, EventStore& names,
                                    EventStore& messageStore);

}  // namespace profiling
}  // namespace vek
