#include "log/EventConversion.h"

#include <cstdint>
#include <cstring>
#include <new>
#include <string_view>

namespace vek {
namespace profiling {
namespace {

// Value fields selected by LogEvent.valueType.
enum LogValueType : int32_t {
    kLogValueInt64 = 1,
    kLogValueUInt64 = 2,
    kLogValueFloat = 3,
    kLogValueBytes = 4,
    kLogValueDouble = 5,
    kLogValueString = 6,
};

// The payload keeps the raw bits of the value in its low bytes.
template <typename T>
EventValue rawValue(uint32_t dataType, T value) {
    static_assert(sizeof(T) <= sizeof(uint64_t), "the payload holds 8 bytes");
    EventValue result;
    result.dataType = dataType;
    std::memcpy(&result.payload, &value, sizeof value);
    return result;
}

// What converting one event needs besides the event.
struct Conversion {
    EventStore& names;  // where names are interned
    EventStore& store;  // details, byte values and lists of sub-events
    // Where the text of string values is kept; null: it stays in the chunk.
    std::list<std::string>* internedStrings;
    EventText nullName;
};

std::string_view viewOf(const flatbuffers::String& text) {
    return std::string_view(text.c_str(), text.size());
}

// The fields of one verified LogEvent table. The generated accessors find the
// table's vtable again for every field; an event has a dozen fields and a
// log has millions of events, so this looks the vtable up once.
class EventFields {
public:
    explicit EventFields(const fb::LogEvent& event)
        : table_(reinterpret_cast<const uint8_t*>(&event)),
          vtable_(table_ - flatbuffers::ReadScalar<flatbuffers::soffset_t>(table_)),
          vtableSize_(flatbuffers::ReadScalar<flatbuffers::voffset_t>(vtable_)) {}

    // An absent field reads as 0.
    template <typename T>
    T scalar(flatbuffers::voffset_t field) const {
        const flatbuffers::voffset_t offset = offsetOf(field);
        return offset != 0 ? flatbuffers::ReadScalar<T>(table_ + offset) : T();
    }
    // Strings, vectors: null when absent.
    template <typename T>
    const T* pointer(flatbuffers::voffset_t field) const {
        const flatbuffers::voffset_t offset = offsetOf(field);
        if (offset == 0) return nullptr;
        const uint8_t* at = table_ + offset;
        return reinterpret_cast<const T*>(at + flatbuffers::ReadScalar<flatbuffers::uoffset_t>(at));
    }

private:
    flatbuffers::voffset_t offsetOf(flatbuffers::voffset_t field) const {
        if (field >= vtableSize_) return 0;
        return flatbuffers::ReadScalar<flatbuffers::voffset_t>(vtable_ + field);
    }

    const uint8_t* table_;
    const uint8_t* vtable_;
    flatbuffers::voffset_t vtableSize_;
};

using fb::LogEvent;

void decodeValue(ProfileEvent& target, const EventFields& event, Conversion& conversion) {
    switch (event.scalar<int32_t>(LogEvent::VT_VALUETYPE)) {
        case kLogValueInt64:
            target.value = rawValue(kDataTypeInt64, event.scalar<int64_t>(LogEvent::VT_INT64VALUE));
            break;
        case kLogValueUInt64:
            target.value =
                rawValue(kDataTypeUInt64, event.scalar<uint64_t>(LogEvent::VT_UINT64VALUE));
            break;
        case kLogValueFloat:
            target.value =
                rawValue(kDataTypeFloat32, event.scalar<float>(LogEvent::VT_FLOATVALUE));
            break;
        case kLogValueBytes:
            // Bytes carry no type code; a missing vector is taken as empty.
            if (const auto* bytes =
                    event.pointer<flatbuffers::Vector<uint8_t>>(LogEvent::VT_BYTESVALUE)) {
                target.bytes = conversion.store.keepBytes(bytes->data(), bytes->size());
            }
            break;
        case kLogValueDouble:
            target.value =
                rawValue(kDataTypeFloat64, event.scalar<double>(LogEvent::VT_DOUBLEVALUE));
            break;
        case kLogValueString: {
            const auto* text = event.pointer<flatbuffers::String>(LogEvent::VT_STRINGVALUE);
            const char* stored = "";
            if (conversion.internedStrings == nullptr) {
                // The chunk's strings end with a zero byte, as the value's text must.
                if (text != nullptr) stored = text->c_str();
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
    const EventFields fields(event);
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

void convertEventsForMessage(const LogEventVector* events, EventStore& names, EventStore& scratch,
                             std::vector<ProfileEvent>& out) {
    Conversion conversion{names, scratch, nullptr, names.intern("null")};
    convertAll(events, conversion, out);
}

}  // namespace profiling
}  // namespace vek
