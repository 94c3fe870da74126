#include "log/EventConversion.h"

#include <cstdint>
#include <new>
#include <string_view>

namespace vek {
namespace profiling {
namespace {

// What converting one event needs besides the event.
struct Conversion {
    EventStore& names;  // where names are interned
    EventStore& store;  // details, byte values and lists of sub-events
    // Where the text of string values is kept; null: interned in `store`.
    std::list<std::string>* internedStrings;
    EventText nullName;
};

std::string_view viewOf(const flatbuffers::String& text) {
    return std::string_view(text.c_str(), text.size());
}

using fb::LogEvent;

void decodeValue(ProfileEvent& target, const LogEventFields& event, Conversion& conversion) {
    switch (event.scalar<int32_t>(LogEvent::VT_VALUETYPE)) {
        case kLogValueBytes:
            // Bytes carry no type code; a missing vector is taken as empty.
            if (const auto* bytes =
                    event.pointer<flatbuffers::Vector<uint8_t>>(LogEvent::VT_BYTESVALUE)) {
                target.bytes = conversion.store.keepBytes(bytes->data(), bytes->size());
            }
            break;
        case kLogValueString: {
            const auto* text = event.pointer<flatbuffers::String>(LogEvent::VT_STRINGVALUE);
            const char* stored = "";
            if (conversion.internedStrings == nullptr) {
                if (text != nullptr) stored = conversion.store.intern(viewOf(*text)).c_str();
            } else {
                // The list never moves its elements, so the address stays
                // valid for the life of the reader.
                std::list<std::string>& strings = *conversion.internedStrings;
                strings.emplace_back(text != nullptr ? text->str() : std::string());
                stored = strings.back().c_str();
            }
            target.value = rawValue(kDataTypeString, reinterpret_cast<uintptr_t>(stored));
            break;
        }
        default:
            target.value = numericValueOf(event);
            break;
    }
}

// Where an event sits in its call's tree.
struct Place {
    size_t depth;
    size_t position;
};

void fillEvent(ProfileEvent& target, const fb::LogEvent& event, Place place,
               Conversion& conversion);

// The sub-events go to one list of the store, in file order.
EventList convertChildren(const LogEventVector* events, size_t depth, Conversion& conversion) {
    if (events == nullptr || events->size() == 0) return EventList();
    StoredEvents& list = conversion.store.newList(events->size());
    ProfileEvent* slot = list.events();
    for (size_t position = 0; position < events->size(); ++position) {
        fillEvent(*new (slot++) ProfileEvent(), *events->Get(position), Place{depth, position},
                  conversion);
    }
    return EventList::stored(list);
}

void fillEvent(ProfileEvent& target, const fb::LogEvent& event, Place place,
               Conversion& conversion) {
    const LogEventFields fields(event);
    // Nesting is bounded by the verifier's depth limit, so recursion is safe.
    target.children = convertChildren(fields.pointer<LogEventVector>(LogEvent::VT_SUBEVENTS),
                                      place.depth + 1, conversion);
    decodeValue(target, fields, conversion);
    const auto* name = fields.pointer<flatbuffers::String>(LogEvent::VT_NAME);
    target.name = name != nullptr
                      ? conversion.names.internName(viewOf(*name), place.depth, place.position)
                      : conversion.nullName;
    if (const auto* detail = fields.pointer<flatbuffers::String>(LogEvent::VT_DETAIL)) {
        target.detail = conversion.store.intern(viewOf(*detail));
    }
    target.identifier = fields.scalar<uint32_t>(LogEvent::VT_IDENTIFIER);
    target.unit = fields.scalar<uint32_t>(LogEvent::VT_UNIT);
    target.timestamp = fields.scalar<uint64_t>(LogEvent::VT_TIMESTAMP);
    target.sampleCount = 1;
}

void convertAll(const LogEventVector* events, Conversion& conversion,
                std::vector<ProfileEvent>& out) {
    if (events == nullptr) {
        return;
    }
    out.reserve(out.size() + events->size());
    for (size_t position = 0; position < events->size(); ++position) {
        out.emplace_back();
        fillEvent(out.back(), *events->Get(position), Place{0, position}, conversion);
    }
}

}  // namespace

ProfileEvent convertEvent(const fb::LogEvent& event, EventStore& store,
                          std::list<std::string>& internedStrings) {
    Conversion conversion{store, store, &internedStrings, store.intern("null")};
    ProfileEvent result;
    fillEvent(result, event, Place{0, 0}, conversion);
    return result;
}

void convertEvents(const LogEventVector* events, EventStore& store,
                   std::list<std::string>& internedStrings, std::vector<ProfileEvent>& out) {
    Conversion conversion{store, store, &internedStrings, store.intern("null")};
    convertAll(events, conversion, out);
}

void convertEventsForMessage(const LogEventVector* events, EventStore& names,
                             EventStore& messageStore, std::vector<ProfileEvent>& out) {
    Conversion conversion{names, messageStore, nullptr, names.intern("null")};
    convertAll(events, conversion, out);
}

ProfileEvent convertEventForMessage(const fb::LogEvent& event, EventStore& names,
                                    EventStore& messageStore) {
    Conversion conversion{names, messageStore, nullptr, names.intern("null")};
    ProfileEvent result;
    fillEvent(result, event, Place{0, 0}, conversion);
    return result;
}

}  // namespace profiling
}  // namespace vek
