// The JSON form of a profile log: the key and value type of every field of
// every log table, in the order the decoder writes them. The decoder and the
// encoder both read these tables, so the two directions cannot drift apart.
//
//   {"chunks": [{"header": {...}, "messages": [{..., "events": [{..., "subEvents": [...]}]}]}]}
#pragma once

#include <cstddef>
#include <cstdint>

#include "profile_log_generated.h"

namespace vek {
namespace profiling {
namespace logjson {

// How a field is held in the log and in JSON.
enum class FieldType : uint8_t {
    U8,
    I8,
    U32,
    I32,
    U64,
    I64,
    F32,
    F64,
    String,     // JSON string
    Bytes,      // vector of u8; JSON array of integers 0..255
    Table,      // nested table; JSON object
    TableList,  // vector of tables; JSON array of objects
};

// The objects of the JSON form. `Document` is the outer {"chunks": [...]}
// object, which has no table of its own in the log.
enum class TableType : uint8_t {
    Document,
    Chunk,
    Header,
    Version,
    Message,
    Stamp,
    Timing,
    Event,
};

struct FieldFormat {
    const char* key;
    FieldType type;
    flatbuffers::voffset_t slot;  // the field's vtable slot in the log table
    TableType table;              // element table of Table and TableList fields
    bool required;
};

struct TableFormat {
    const char* name;  // for messages: "event", "message", ...
    const FieldFormat* fields;
    size_t fieldCount;
};

// Field positions within each table's format, in output order; the encoder
// uses them to find the values it collected for the generated builders.
enum DocumentField : uint8_t { kDocumentChunks };
enum ChunkField : uint8_t { kChunkHeader, kChunkMessages };
enum HeaderField : uint8_t {
    kHeaderToolName,
    kHeaderToolVersion,
    kHeaderBackend,
    kHeaderTimeScale,
    kHeaderEpochTimestamp,
    kHeaderSteadyClockTimestamp,
    kHeaderVersion,
};
enum VersionField : uint8_t { kVersionMajor, kVersionMinor, kVersionPatch, kVersionFlags };
enum MessageField : uint8_t {
    kMessageMethodType,
    kMessageGraphName,
    kMessageVisibility,
    kMessageStamp,
    kMessageTiming,
    kMessageEvents,
};
enum StampField : uint8_t { kStampTimestamp, kStampSequence };
enum TimingField : uint8_t {
    kTimingStartTime,
    kTimingEndTime,
    kTimingReserved0,
    kTimingReserved1,
    kTimingReserved2,
};
enum EventField : uint8_t {
    kEventName,
    kEventIdentifier,
    kEventUnit,
    kEventValueType,
    kEventInt64Value,
    kEventUint64Value,
    kEventFloatValue,
    kEventDoubleValue,
    kEventStringValue,
    kEventBytesValue,
    kEventDetail,
    kEventTimestamp,
    kEventSubEvents,
};

// No table has more fields than this.
constexpr size_t kMaxFieldsPerTable = 16;

const TableFormat& tableFormat(TableType type);

// Position of `key` among the table's fields, or -1 when the table has no such key.
int findField(const TableFormat& format, const char* key, size_t length);

// Texts for float values JSON cannot hold as numbers.
constexpr char kNotANumberText[] = "NaN";
constexpr char kInfinityText[] = "Infinity";
constexpr char kNegativeInfinityText[] = "-Infinity";

}  // namespace logjson
}  // namespace profiling
}  // namespace vek
