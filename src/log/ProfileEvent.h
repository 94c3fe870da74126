// The in-memory event model that loading builds and the reports read.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vek {
namespace profiling {

// Value type codes of an event's value.
enum DataType : uint32_t {
    kDataTypeNone = 0,
    kDataTypeInt64 = 0x0064,
    kDataTypeUInt64 = 0x0164,
    kDataTypeFloat32 = 0x0232,
    kDataTypeFloat64 = 0x0264,
    kDataTypeString = 0x0608,
};

// A tagged 8-byte value. The payload holds the raw bits of an i64, u64,
// f32 (low 4 bytes), f64, or the address of interned, zero-terminated text.
struct EventValue {
    uint32_t dataType = kDataTypeNone;
    uint64_t payload = 0;
};

struct ProfileEvent {
    uint32_t identifier = 0;
    EventValue value;
    std::vector<uint8_t> bytes;
    std::string name;
    std::string detail;
    uint32_t unit = 0;
    uint64_t timestamp = 0;
    uint64_t sampleCount = 1;
    std::vector<ProfileEvent> children;
};

// One timed call with its events.
struct ExecutionSample {
    uint64_t netRunUs = 0;  // the call's duration
    uint64_t auxValue = 0;  // the message timestamp
    std::vector<ProfileEvent> events;
};

// The calls of one graph, in log order.
struct GraphSamples {
    std::string graphName;
    std::vector<ExecutionSample> samples;
};

// One call under a graph name.
struct NamedSample {
    std::string graphName;
    uint64_t netRunUs = 0;
    uint64_t auxValue = 0;
    std::vector<ProfileEvent> events;
};

// Event identifiers that carry meaning for the reports.
constexpr uint32_t kInitEventIdentifier = 100;
constexpr uint32_t kOpRecordIdentifier = 404;
constexpr uint32_t kQueueWaitIdentifier = 405;

// Event units.
enum EventUnit : uint32_t {
    kUnitMicroseconds = 1,
    kUnitBytes = 2,
    kUnitCycles = 3,
    kUnitCount = 4,
    kUnitObject = 5,
    kUnitNone = 6,
};

}  // namespace profiling
}  // namespace vek
