// Reading one verified LogEvent table in place: its fields, and its value as
// the event model holds it.
#pragma once

#include <cstdint>
#include <cstring>

#include "log/ProfileEvent.h"
#include "profile_log_generated.h"

namespace vek {
namespace profiling {

using LogEventVector = flatbuffers::Vector<flatbuffers::Offset<fb::LogEvent>>;

// Value fields selected by LogEvent.valueType.
enum LogValueType : int32_t {
    kLogValueInt64 = 1,
    kLogValueUInt64 = 2,
    kLogValueFloat = 3,
    kLogValueBytes = 4,
    kLogValueDouble = 5,
    kLogValueString = 6,
};

// The fields of one verified LogEvent table. The generated accessors find the
// table's vtable again for every field; an event has a dozen fields and a
// log has millions of events, so this looks the vtable up once.
class LogEventFields {
public:
    explicit LogEventFields(const fb::LogEvent& event)
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

// The payload keeps the raw bits of the value in its low bytes.
template <typename T>
EventValue rawValue(uint32_t dataType, T value) {
    static_assert(sizeof(T) <= sizeof(uint64_t), "the payload holds 8 bytes");
    EventValue result;
    result.dataType = dataType;
    std::memcpy(&result.payload, &value, sizeof value);
    return result;
}

// The value of a numeric event (value types 1, 2, 3 and 5); any other value
// type gives no value here (bytes have none, text is kept by the caller).
inline EventValue numericValueOf(const LogEventFields& event) {
    using fb::LogEvent;
    switch (event.scalar<int32_t>(LogEvent::VT_VALUETYPE)) {
        case kLogValueInt64:
            return rawValue(kDataTypeInt64, event.scalar<int64_t>(LogEvent::VT_INT64VALUE));
        case kLogValueUInt64:
            return rawValue(kDataTypeUInt64, event.scalar<uint64_t>(LogEvent::VT_UINT64VALUE));
        case kLogValueFloat:
            return rawValue(kDataTypeFloat32, event.scalar<float>(LogEvent::VT_FLOATVALUE));
        case kLogValueDouble:
            return rawValue(kDataTypeFloat64, event.scalar<double>(LogEvent::VT_DOUBLEVALUE));
        default:
            return EventValue();
    }
}

// The payload the event model would hold for the event, as merged and
// compared without converting it. The text of a string value counts by its
// address (here, in the chunk), as a loaded one does by its own.
inline uint64_t payloadOf(const LogEventFields& event) {
    using fb::LogEvent;
    if (event.scalar<int32_t>(LogEvent::VT_VALUETYPE) != kLogValueString) {
        return numericValueOf(event).payload;
    }
    const auto* text = event.pointer<flatbuffers::String>(LogEvent::VT_STRINGVALUE);
    return text != nullptr ? reinterpret_cast<uintptr_t>(text->c_str()) : 0;
}

}  // namespace profiling
}  // namespace vek
