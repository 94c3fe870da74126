#include "JsonLogFormat.h"

#include <cstring>

namespace vek {
namespace profiling {
namespace logjson {
namespace {

using T = FieldType;
using fb::LogChunk;
using fb::LogEvent;
using fb::LogHeader;
using fb::LogMessage;
using fb::LogVersion;
using fb::MessageStamp;
using fb::MessageTiming;

constexpr FieldFormat kDocumentFields[] = {
    {"chunks", T::TableList, 0, TableType::Chunk, true},
};

constexpr FieldFormat kChunkFields[] = {
    {"header", T::Table, LogChunk::VT_HEADER, TableType::Header, false},
    {"messages", T::TableList, LogChunk::VT_MESSAGES, TableType::Message, false},
};

constexpr FieldFormat kHeaderFields[] = {
    {"toolName", T::String, LogHeader::VT_TOOLNAME, TableType::Header, false},
    {"toolVersion", T::String, LogHeader::VT_TOOLVERSION, TableType::Header, false},
    {"backend", T::String, LogHeader::VT_BACKEND, TableType::Header, false},
    {"timeScale", T::F32, LogHeader::VT_TIMESCALE, TableType::Header, false},
    {"epochTimestamp", T::U64, LogHeader::VT_EPOCHTIMESTAMP, TableType::Header, false},
    {"steadyClockTimestamp", T::U64, LogHeader::VT_STEADYCLOCKTIMESTAMP, TableType::Header,
     false},
    {"version", T::Table, LogHeader::VT_VERSION, TableType::Version, false},
};

constexpr FieldFormat kVersionFields[] = {
    {"major", T::U32, LogVersion::VT_MAJOR, TableType::Version, false},
    {"minor", T::U32, LogVersion::VT_MINOR, TableType::Version, false},
    {"patch", T::U32, LogVersion::VT_PATCH, TableType::Version, false},
    {"flags", T::U8, LogVersion::VT_FLAGS, TableType::Version, false},
};

constexpr FieldFormat kMessageFields[] = {
    {"methodType", T::U8, LogMessage::VT_METHODTYPE, TableType::Message, false},
    {"graphName", T::String, LogMessage::VT_GRAPHNAME, TableType::Message, false},
    {"visibility", T::I8, LogMessage::VT_VISIBILITY, TableType::Message, false},
    {"stamp", T::Table, LogMessage::VT_STAMP, TableType::Stamp, true},
    {"timing", T::Table, LogMessage::VT_TIMING, TableType::Timing, true},
    {"events", T::TableList, LogMessage::VT_EVENTS, TableType::Event, false},
};

constexpr FieldFormat kStampFields[] = {
    {"timestamp", T::U64, MessageStamp::VT_TIMESTAMP, TableType::Stamp, false},
    {"sequence", T::U64, MessageStamp::VT_SEQUENCE, TableType::Stamp, false},
};

constexpr FieldFormat kTimingFields[] = {
    {"startTime", T::U64, MessageTiming::VT_STARTTIME, TableType::Timing, false},
    {"endTime", T::U64, MessageTiming::VT_ENDTIME, TableType::Timing, false},
    {"reserved0", T::U64, MessageTiming::VT_RESERVED0, TableType::Timing, false},
    {"reserved1", T::U64, MessageTiming::VT_RESERVED1, TableType::Timing, false},
    {"reserved2", T::U8, MessageTiming::VT_RESERVED2, TableType::Timing, false},
};

// Children last, so that a printed event reads top-down.
constexpr FieldFormat kEventFields[] = {
    {"name", T::String, LogEvent::VT_NAME, TableType::Event, false},
    {"identifier", T::U32, LogEvent::VT_IDENTIFIER, TableType::Event, false},
    {"unit", T::U32, LogEvent::VT_UNIT, TableType::Event, false},
    {"valueType", T::I32, LogEvent::VT_VALUETYPE, TableType::Event, false},
    {"int64Value", T::I64, LogEvent::VT_INT64VALUE, TableType::Event, false},
    {"uint64Value", T::U64, LogEvent::VT_UINT64VALUE, TableType::Event, false},
    {"floatValue", T::F32, LogEvent::VT_FLOATVALUE, TableType::Event, false},
    {"doubleValue", T::F64, LogEvent::VT_DOUBLEVALUE, TableType::Event, false},
    {"stringValue", T::String, LogEvent::VT_STRINGVALUE, TableType::Event, false},
    {"bytesValue", T::Bytes, LogEvent::VT_BYTESVALUE, TableType::Event, false},
    {"detail", T::String, LogEvent::VT_DETAIL, TableType::Event, false},
    {"timestamp", T::U64, LogEvent::VT_TIMESTAMP, TableType::Event, false},
    {"subEvents", T::TableList, LogEvent::VT_SUBEVENTS, TableType::Event, false},
};

template <size_t N>
constexpr TableFormat formatOf(const char* name, const FieldFormat (&fields)[N]) {
    static_assert(N <= kMaxFieldsPerTable, "a table has more fields than the encoder can hold");
    return TableFormat{name, fields, N};
}

// Indexed by TableType.
constexpr TableFormat kTableFormats[] = {
    formatOf("document", kDocumentFields), formatOf("chunk", kChunkFields),
    formatOf("header", kHeaderFields),     formatOf("version", kVersionFields),
    formatOf("message", kMessageFields),   formatOf("stamp", kStampFields),
    formatOf("timing", kTimingFields),     formatOf("event", kEventFields),
};

static_assert(sizeof kEventFields / sizeof kEventFields[0] == kEventSubEvents + 1,
              "EventField and kEventFields disagree");
static_assert(sizeof kMessageFields / sizeof kMessageFields[0] == kMessageEvents + 1,
              "MessageField and kMessageFields disagree");
static_assert(sizeof kHeaderFields / sizeof kHeaderFields[0] == kHeaderVersion + 1,
              "HeaderField and kHeaderFields disagree");
static_assert(sizeof kTimingFields / sizeof kTimingFields[0] == kTimingReserved2 + 1,
              "TimingField and kTimingFields disagree");
static_assert(sizeof kTableFormats / sizeof kTableFormats[0] ==
                  static_cast<size_t>(TableType::Event) + 1,
              "a table type has no format");

}  // namespace

const TableFormat& tableFormat(TableType type) {
    return kTableFormats[static_cast<size_t>(type)];
}

int findField(const TableFormat& format, const char* key, size_t length) {
    for (size_t i = 0; i < format.fieldCount; ++i) {
        const char* candidate = format.fields[i].key;
        if (std::strlen(candidate) == length && std::memcmp(candidate, key, length) == 0) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

}  // namespace logjson
}  // namespace profiling
}  // namespace vek
