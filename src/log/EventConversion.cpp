#include "log/EventConversion.h"

#include <cstdint>
#include <cstring>

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

void decodeValue(ProfileEvent& target, const fb::LogEvent& event,
                 std::list<std::string>& internedStrings) {
    switch (event.valueType()) {
        case kLogValueInt64:
            target.value = rawValue(kDataTypeInt64, event.int64Value());
            break;
        case kLogValueUInt64:
            target.value = rawValue(kDataTypeUInt64, event.uint64Value());
            break;
        case kLogValueFloat:
            target.value = rawValue(kDataTypeFloat32, event.floatValue());
            break;
        case kLogValueBytes:
            // Bytes carry no type code; a missing vector is taken as empty.
            if (const auto* bytes = event.bytesValue()) {
                target.bytes.assign(bytes->begin(), bytes->end());
            }
            break;
        case kLogValueDouble:
            target.value = rawValue(kDataTypeFloat64, event.doubleValue());
            break;
        case kLogValueString: {
            const auto* text = event.stringValue();
            // The list never moves its elements, so the address stays valid
            // for the life of the reader.
            internedStrings.emplace_back(text != nullptr ? text->str() : std::string());
            target.value = rawValue(kDataTypeString,
                                    reinterpret_cast<uintptr_t>(internedStrings.back().c_str()));
            break;
        }
        default:
            break;
    }
}

void fillEvent(ProfileEvent& target, const fb::LogEvent& event,
               std::list<std::string>& internedStrings) {
    // Nesting is bounded by the verifier's depth limit, so recursion is safe.
    convertEvents(event.subEvents(), internedStrings, target.children);
    decodeValue(target, event, internedStrings);
    const auto* name = event.name();
    target.name = name != nullptr ? name->str() : std::string("null");
    if (const auto* detail = event.detail()) {
        target.detail = detail->str();
    }
    target.identifier = event.identifier();
    target.unit = event.unit();
    target.timestamp = event.timestamp();
    target.sampleCount = 1;
}

}  // namespace

ProfileEvent convertEvent(const fb::LogEvent& event, std::list<std::string>& internedStrings) {
    ProfileEvent result;
    fillEvent(result, event, internedStrings);
    return result;
}

void convertEvents(const LogEventVector* events, std::list<std::string>& internedStrings,
                   std::vector<ProfileEvent>& out) {
    if (events == nullptr) {
        return;
    }
    out.reserve(out.size() + events->size());
    for (const fb::LogEvent* event : *events) {
        out.emplace_back();
        fillEvent(out.back(), *event, internedStrings);
    }
}

}  // namespace profiling
}  // namespace vek
