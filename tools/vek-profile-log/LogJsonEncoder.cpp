#include "LogJsonEncoder.h"

#include <rapidjson/error/en.h>
#include <rapidjson/filereadstream.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <limits>
#include <vector>

#include "InputFile.h"
#include "JsonLogFormat.h"
#include "JsonNumberText.h"
#include "log/FlatBufferReaderUtil.h"

namespace vek {
namespace profiling {
namespace {

using flatbuffers::FlatBufferBuilder;
using flatbuffers::Offset;
using flatbuffers::uoffset_t;
using logjson::FieldFormat;
using logjson::FieldType;
using logjson::TableFormat;
using logjson::TableType;
using TableOffset = Offset<flatbuffers::Table>;

// The verifier refuses chunks of 0x7fffffff bytes or more.
constexpr size_t kMaximumChunkSize = 0x7ffffffe;
// Room kept for the tables and vtables still to come around a string or vector.
constexpr size_t kTableHeadroom = 4096;
// The verifier allows 64 nested tables: the chunk, the message and 62 levels of events.
constexpr int kMaximumEventDepth = 62;
// Doubles from here on round to an infinite float.
const double kFloatOverflow = std::ldexp(1.0, 128) - std::ldexp(1.0, 103);

// The values of one table collected from its JSON object, until the object
// closes and the table can be built: FlatBuffers needs a table's strings,
// vectors and sub-tables finished before the table itself starts.
struct PendingTable {
    uint32_t seen = 0;  // one bit per field: its value was collected
    uint64_t values[logjson::kMaxFieldsPerTable];

    bool has(int field) const { return (seen >> field & 1u) != 0; }

    // Scalars and offsets are kept as their bits.
    template <typename Value>
    void put(int field, Value value) {
        static_assert(sizeof(Value) <= sizeof(uint64_t), "value too wide");
        values[field] = 0;
        std::memcpy(&values[field], &value, sizeof value);
    }
    template <typename Value>
    Value get(int field) const {
        Value value;
        std::memcpy(&value, &values[field], sizeof value);
        return value;
    }
    template <typename Target>
    Offset<Target> offset(int field) const {
        return Offset<Target>(get<uoffset_t>(field));
    }
};

Offset<fb::LogVersion> buildVersion(FlatBufferBuilder& fbb, const PendingTable& p) {
    using namespace logjson;
    fb::LogVersionBuilder b(fbb);
    if (p.has(kVersionMajor)) b.add_major(p.get<uint32_t>(kVersionMajor));
    if (p.has(kVersionMinor)) b.add_minor(p.get<uint32_t>(kVersionMinor));
    if (p.has(kVersionPatch)) b.add_patch(p.get<uint32_t>(kVersionPatch));
    if (p.has(kVersionFlags)) b.add_flags(p.get<uint8_t>(kVersionFlags));
    return b.Finish();
}

Offset<fb::LogHeader> buildHeader(FlatBufferBuilder& fbb, const PendingTable& p) {
    using namespace logjson;
    fb::LogHeaderBuilder b(fbb);
    if (p.has(kHeaderEpochTimestamp)) b.add_epochTimestamp(p.get<uint64_t>(kHeaderEpochTimestamp));
    if (p.has(kHeaderSteadyClockTimestamp)) {
        b.add_steadyClockTimestamp(p.get<uint64_t>(kHeaderSteadyClockTimestamp));
    }
    if (p.has(kHeaderTimeScale)) b.add_timeScale(p.get<float>(kHeaderTimeScale));
    if (p.has(kHeaderVersion)) b.add_version(p.offset<fb::LogVersion>(kHeaderVersion));
    if (p.has(kHeaderToolVersion)) {
        b.add_toolVersion(p.offset<flatbuffers::String>(kHeaderToolVersion));
    }
    if (p.has(kHeaderBackend)) b.add_backend(p.offset<flatbuffers::String>(kHeaderBackend));
    if (p.has(kHeaderToolName)) b.add_toolName(p.offset<flatbuffers::String>(kHeaderToolName));
    return b.Finish();
}

Offset<fb::MessageStamp> buildStamp(FlatBufferBuilder& fbb, const PendingTable& p) {
    using namespace logjson;
    fb::MessageStampBuilder b(fbb);
    if (p.has(kStampTimestamp)) b.add_timestamp(p.get<uint64_t>(kStampTimestamp));
    if (p.has(kStampSequence)) b.add_sequence(p.get<uint64_t>(kStampSequence));
    return b.Finish();
}

Offset<fb::MessageTiming> buildTiming(FlatBufferBuilder& fbb, const PendingTable& p) {
    using namespace logjson;
    fb::MessageTimingBuilder b(fbb);
    if (p.has(kTimingStartTime)) b.add_startTime(p.get<uint64_t>(kTimingStartTime));
    if (p.has(kTimingEndTime)) b.add_endTime(p.get<uint64_t>(kTimingEndTime));
    if (p.has(kTimingReserved0)) b.add_reserved0(p.get<uint64_t>(kTimingReserved0));
    if (p.has(kTimingReserved1)) b.add_reserved1(p.get<uint64_t>(kTimingReserved1));
    if (p.has(kTimingReserved2)) b.add_reserved2(p.get<uint8_t>(kTimingReserved2));
    return b.Finish();
}

Offset<fb::LogEvent> buildEvent(FlatBufferBuilder& fbb, const PendingTable& p) {
    using namespace logjson;
    using Events = flatbuffers::Vector<Offset<fb::LogEvent>>;
    fb::LogEventBuilder b(fbb);
    if (p.has(kEventTimestamp)) b.add_timestamp(p.get<uint64_t>(kEventTimestamp));
    if (p.has(kEventUint64Value)) b.add_uint64Value(p.get<uint64_t>(kEventUint64Value));
    if (p.has(kEventInt64Value)) b.add_int64Value(p.get<int64_t>(kEventInt64Value));
    if (p.has(kEventDoubleValue)) b.add_doubleValue(p.get<double>(kEventDoubleValue));
    if (p.has(kEventName)) b.add_name(p.offset<flatbuffers::String>(kEventName));
    if (p.has(kEventIdentifier)) b.add_identifier(p.get<uint32_t>(kEventIdentifier));
    if (p.has(kEventUnit)) b.add_unit(p.get<uint32_t>(kEventUnit));
    if (p.has(kEventSubEvents)) b.add_subEvents(p.offset<Events>(kEventSubEvents));
    if (p.has(kEventValueType)) b.add_valueType(p.get<int32_t>(kEventValueType));
    if (p.has(kEventFloatValue)) b.add_floatValue(p.get<float>(kEventFloatValue));
    if (p.has(kEventBytesValue)) {
        b.add_bytesValue(p.offset<flatbuffers::Vector<uint8_t>>(kEventBytesValue));
    }
    if (p.has(kEventDetail)) b.add_detail(p.offset<flatbuffers::String>(kEventDetail));
    if (p.has(kEventStringValue)) {
        b.add_stringValue(p.offset<flatbuffers::String>(kEventStringValue));
    }
    return b.Finish();
}

// Callers have checked that "stamp" and "timing" are there: Finish() insists.
Offset<fb::LogMessage> buildMessage(FlatBufferBuilder& fbb, const PendingTable& p) {
    using namespace logjson;
    using Events = flatbuffers::Vector<Offset<fb::LogEvent>>;
    fb::LogMessageBuilder b(fbb);
    b.add_stamp(p.offset<fb::MessageStamp>(kMessageStamp));
    b.add_timing(p.offset<fb::MessageTiming>(kMessageTiming));
    if (p.has(kMessageEvents)) b.add_events(p.offset<Events>(kMessageEvents));
    if (p.has(kMessageGraphName)) {
        b.add_graphName(p.offset<flatbuffers::String>(kMessageGraphName));
    }
    if (p.has(kMessageMethodType)) b.add_methodType(p.get<uint8_t>(kMessageMethodType));
    if (p.has(kMessageVisibility)) b.add_visibility(p.get<int8_t>(kMessageVisibility));
    return b.Finish();
}

Offset<fb::LogChunk> buildChunk(FlatBufferBuilder& fbb, const PendingTable& p) {
    using namespace logjson;
    using Messages = flatbuffers::Vector<Offset<fb::LogMessage>>;
    fb::LogChunkBuilder b(fbb);
    if (p.has(kChunkHeader)) b.add_header(p.offset<fb::LogHeader>(kChunkHeader));
    if (p.has(kChunkMessages)) b.add_messages(p.offset<Messages>(kChunkMessages));
    return b.Finish();
}

TableOffset buildTable(FlatBufferBuilder& fbb, TableType type, const PendingTable& p) {
    switch (type) {
        case TableType::Chunk: return TableOffset(buildChunk(fbb, p).o);
        case TableType::Header: return TableOffset(buildHeader(fbb, p).o);
        case TableType::Version: return TableOffset(buildVersion(fbb, p).o);
        case TableType::Message: return TableOffset(buildMessage(fbb, p).o);
        case TableType::Stamp: return TableOffset(buildStamp(fbb, p).o);
        case TableType::Timing: return TableOffset(buildTiming(fbb, p).o);
        case TableType::Event: return TableOffset(buildEvent(fbb, p).o);
        case TableType::Document: break;
    }
    return TableOffset(0);
}

const char* expectedText(FieldType type) {
    switch (type) {
        case FieldType::U8: return "an integer 0..255";
        case FieldType::I8: return "an integer -128..127";
        case FieldType::U32: return "an integer 0..4294967295";
        case FieldType::I32: return "an integer -2147483648..2147483647";
        case FieldType::U64: return "an integer 0..18446744073709551615";
        case FieldType::I64: return "an integer -9223372036854775808..9223372036854775807";
        case FieldType::F32:
        case FieldType::F64: return "a number or one of \"NaN\", \"Infinity\", \"-Infinity\"";
        case FieldType::String: return "a string";
        case FieldType::Bytes: return "an array of integers 0..255";
        case FieldType::Table: return "an object";
        case FieldType::TableList: return "an array of objects";
    }
    return "";
}

bool isInteger(FieldType type) {
    return type == FieldType::U8 || type == FieldType::I8 || type == FieldType::U32 ||
           type == FieldType::I32 || type == FieldType::U64 || type == FieldType::I64;
}

// A JSON integer as RapidJSON hands it over: negative ones as signed, others as unsigned.
struct JsonInteger {
    bool negative;
    int64_t signedValue;     // when negative
    uint64_t unsignedValue;  // when not negative

    static JsonInteger of(int64_t value) {
        return value < 0 ? JsonInteger{true, value, 0}
                         : JsonInteger{false, 0, static_cast<uint64_t>(value)};
    }
    static JsonInteger of(uint64_t value) { return JsonInteger{false, 0, value}; }

    bool fitsUnsigned(uint64_t max) const { return !negative && unsignedValue <= max; }
    bool fitsSigned(int64_t min, int64_t max) const {
        return negative ? signedValue >= min : unsignedValue <= static_cast<uint64_t>(max);
    }
    double toDouble() const {
        return negative ? static_cast<double>(signedValue) : static_cast<double>(unsignedValue);
    }
    std::string text() const {
        return negative ? std::to_string(signedValue) : std::to_string(unsignedValue);
    }
};

// RapidJSON SAX handler that turns the JSON form into chunks as it streams by.
class ChunkAssembler {
public:
    ChunkAssembler(OutputSink& out, std::function<size_t()> position)
        : out_(out), position_(std::move(position)) {
        // A key that is present is written even when it holds the default.
        fbb_.ForceDefaults(true);
    }

    const std::string& error() const { return error_; }
    size_t chunkCount() const { return chunkCount_; }

    bool Null() { return wrongType("null"); }
    bool Bool(bool) { return wrongType("a boolean"); }
    bool Int(int value) { return integer(JsonInteger::of(static_cast<int64_t>(value))); }
    bool Uint(unsigned value) { return integer(JsonInteger::of(static_cast<uint64_t>(value))); }
    bool Int64(int64_t value) { return integer(JsonInteger::of(value)); }
    bool Uint64(uint64_t value) { return integer(JsonInteger::of(value)); }
    bool Double(double value);
    // Numbers arrive as their text and are converted here: RapidJSON 1.1.0's
    // own conversion of long mantissas can go wrong.
    bool RawNumber(const char* text, rapidjson::SizeType length, bool);
    bool String(const char* text, rapidjson::SizeType length, bool);
    bool StartObject();
    bool Key(const char* text, rapidjson::SizeType length, bool);
    bool EndObject(rapidjson::SizeType);
    bool StartArray();
    bool EndArray(rapidjson::SizeType);

private:
    struct Frame {
        bool isArray = false;
        TableType table = TableType::Document;  // object: its table
        const FieldFormat* field = nullptr;     // array: the field it fills
        int key = -1;                           // object: the field whose value comes next
        size_t count = 0;                       // array: elements met so far
        PendingTable pending;
        std::vector<TableOffset> offsets;  // array of tables
        std::vector<uint8_t> bytes;        // array of bytes
    };

    Frame& top() { return frames_[depth_ - 1]; }
    Frame& push();
    const FieldFormat& keyField(const Frame& frame) const {
        return logjson::tableFormat(frame.table).fields[frame.key];
    }
    // The type expected of the next value: the pending key's or the array element's.
    FieldType targetType(const Frame& frame) const;

    bool integer(const JsonInteger& value);
    bool number(FieldType type, double value, const std::string& found);
    bool store(Frame& frame, uint64_t bits);
    template <typename Value>
    bool storeValue(Frame& frame, Value value);
    bool deliverOffset(uoffset_t offset);
    bool finishChunk(TableOffset root);
    bool ensureRoom(size_t extra);

    bool wrongType(const std::string& found);
    bool fail(const std::string& message);
    std::string path() const;

    OutputSink& out_;
    std::function<size_t()> position_;
    FlatBufferBuilder fbb_;
    std::vector<Frame> frames_;  // never shrinks, so frames keep their vectors' capacity
    size_t depth_ = 0;
    int eventDepth_ = 0;
    size_t chunkCount_ = 0;
    std::string error_;
};

ChunkAssembler::Frame& ChunkAssembler::push() {
    if (depth_ == frames_.size()) frames_.emplace_back();
    Frame& frame = frames_[depth_++];
    frame.isArray = false;
    frame.table = TableType::Document;
    frame.field = nullptr;
    frame.key = -1;
    frame.count = 0;
    frame.pending.seen = 0;
    frame.offsets.clear();
    frame.bytes.clear();
    return frame;
}

FieldType ChunkAssembler::targetType(const Frame& frame) const {
    if (!frame.isArray) return keyField(frame).type;
    // An array's elements: objects of a table list, or bytes.
    return frame.field->type == FieldType::Bytes ? FieldType::U8 : FieldType::Table;
}

bool ChunkAssembler::StartObject() {
    TableType type = TableType::Document;
    if (depth_ > 0) {
        Frame& parent = top();
        if (parent.isArray) ++parent.count;
        if (targetType(parent) != FieldType::Table) return wrongType("an object");
        type = parent.isArray ? parent.field->table : keyField(parent).table;
        if (type == TableType::Event && ++eventDepth_ > kMaximumEventDepth) {
            return fail("events are nested deeper than " + std::to_string(kMaximumEventDepth) +
                        " levels, more than the log verifier allows");
        }
    }
    push().table = type;
    return true;
}

bool ChunkAssembler::Key(const char* text, rapidjson::SizeType length, bool) {
    Frame& frame = top();
    const TableFormat& format = logjson::tableFormat(frame.table);
    const int index = logjson::findField(format, text, length);
    if (index < 0) {
        return fail("unknown key \"" + std::string(text, length) + "\" in the " + format.name +
                    " object");
    }
    if (frame.pending.has(index)) {
        return fail("key \"" + std::string(text, length) + "\" appears twice");
    }
    frame.key = index;
    return true;
}

bool ChunkAssembler::EndObject(rapidjson::SizeType) {
    Frame& frame = top();
    const TableFormat& format = logjson::tableFormat(frame.table);
    for (size_t i = 0; i < format.fieldCount; ++i) {
        if (format.fields[i].required && !frame.pending.has(static_cast<int>(i))) {
            return fail(std::string("missing required key \"") + format.fields[i].key + "\"");
        }
    }
    const TableType type = frame.table;
    if (type == TableType::Document) {
        --depth_;
        return true;
    }
    if (!ensureRoom(0)) return false;
    const TableOffset offset = buildTable(fbb_, type, frame.pending);
    --depth_;
    if (type == TableType::Chunk) return finishChunk(offset);
    if (type == TableType::Event) --eventDepth_;
    return deliverOffset(offset.o);
}

bool ChunkAssembler::StartArray() {
    if (depth_ == 0) return wrongType("an array");
    Frame& parent = top();
    if (parent.isArray) {
        ++parent.count;
        return wrongType("an array");
    }
    const FieldFormat& field = keyField(parent);
    if (field.type != FieldType::TableList && field.type != FieldType::Bytes) {
        return wrongType("an array");
    }
    Frame& frame = push();
    frame.isArray = true;
    frame.field = &field;
    frame.table = field.table;
    return true;
}

bool ChunkAssembler::EndArray(rapidjson::SizeType) {
    Frame& frame = top();
    uoffset_t offset = 0;
    if (frame.field->type == FieldType::Bytes) {
        if (!ensureRoom(frame.bytes.size())) return false;
        offset = fbb_.CreateVector(frame.bytes).o;
    } else if (frame.table != TableType::Chunk) {
        if (!ensureRoom(frame.offsets.size() * sizeof(uoffset_t))) return false;
        offset = fbb_.CreateVector(frame.offsets.data(), frame.offsets.size()).o;
    }
    // The chunk list is no vector: each chunk has already been written.
    --depth_;
    return deliverOffset(offset);
}

bool ChunkAssembler::String(const char* text, rapidjson::SizeType length, bool) {
    if (depth_ == 0) return wrongType("a string");
    Frame& frame = top();
    if (frame.isArray) ++frame.count;
    const FieldType type = targetType(frame);
    const std::string_view value(text, length);
    if (type == FieldType::String) {
        if (!ensureRoom(length)) return false;
        return store(frame, fbb_.CreateString(text, length).o);
    }
    if (type == FieldType::F32 || type == FieldType::F64) {
        const double inf = std::numeric_limits<double>::infinity();
        if (value == logjson::kNotANumberText) {
            return number(type, std::numeric_limits<double>::quiet_NaN(), "");
        }
        if (value == logjson::kInfinityText) return number(type, inf, "");
        if (value == logjson::kNegativeInfinityText) return number(type, -inf, "");
    }
    return wrongType("the string \"" + std::string(value.substr(0, 40)) + "\"");
}

bool ChunkAssembler::integer(const JsonInteger& value) {
    if (depth_ == 0) return wrongType("a number");
    Frame& frame = top();
    if (frame.isArray) ++frame.count;
    const FieldType type = targetType(frame);
    bool fits = true;
    switch (type) {
        case FieldType::U8: fits = value.fitsUnsigned(UINT8_MAX); break;
        case FieldType::I8: fits = value.fitsSigned(INT8_MIN, INT8_MAX); break;
        case FieldType::U32: fits = value.fitsUnsigned(UINT32_MAX); break;
        case FieldType::I32: fits = value.fitsSigned(INT32_MIN, INT32_MAX); break;
        case FieldType::U64: fits = value.fitsUnsigned(UINT64_MAX); break;
        case FieldType::I64: fits = value.fitsSigned(INT64_MIN, INT64_MAX); break;
        case FieldType::F32:
        case FieldType::F64: return number(type, value.toDouble(), value.text());
        default: return wrongType("the number " + value.text());
    }
    if (!fits) {
        return fail(std::string("expected ") + expectedText(type) + ", found " + value.text() +
                    ", which is out of range");
    }
    if (type == FieldType::U8 && frame.isArray) {
        frame.bytes.push_back(static_cast<uint8_t>(value.unsignedValue));
        return true;
    }
    switch (type) {
        case FieldType::U8: return storeValue(frame, static_cast<uint8_t>(value.unsignedValue));
        case FieldType::U32: return storeValue(frame, static_cast<uint32_t>(value.unsignedValue));
        case FieldType::U64: return storeValue(frame, value.unsignedValue);
        case FieldType::I8:
            return storeValue(frame, static_cast<int8_t>(value.negative ? value.signedValue
                                                                        : value.unsignedValue));
        case FieldType::I32:
            return storeValue(frame, static_cast<int32_t>(value.negative ? value.signedValue
                                                                         : value.unsignedValue));
        default:
            return storeValue(frame, static_cast<int64_t>(value.negative ? value.signedValue
                                                                         : value.unsignedValue));
    }
}

bool ChunkAssembler::RawNumber(const char* text, rapidjson::SizeType length, bool) {
    const char* end = text + length;
    // What RapidJSON would have done: an integer that fits 64 bits (signed
    // when negative) stays an integer, every other number becomes a double.
    if (std::none_of(text, end, [](char c) { return c == '.' || c == 'e' || c == 'E'; })) {
        if (*text == '-') {
            int64_t value = 0;
            const auto result = std::from_chars(text, end, value);
            if (result.ec == std::errc() && result.ptr == end) return integer(JsonInteger::of(value));
        } else {
            uint64_t value = 0;
            const auto result = std::from_chars(text, end, value);
            if (result.ec == std::errc() && result.ptr == end) return integer(JsonInteger::of(value));
        }
    }
    double value = 0.0;
    const auto result = std::from_chars(text, end, value);
    if (result.ec == std::errc::result_out_of_range) {
        // Too small or too large for a double: the wider type says which,
        // and converting it gives the zero or the infinity.
        long double wide = 0.0L;
        std::from_chars(text, end, wide);
        value = static_cast<double>(wide);
    }
    return Double(value);
}

bool ChunkAssembler::Double(double value) {
    if (depth_ == 0) return wrongType("a number");
    Frame& frame = top();
    if (frame.isArray) ++frame.count;
    const FieldType type = targetType(frame);
    if (isInteger(type)) {
        return fail(std::string("expected ") + expectedText(type) +
                    ", found a number with a fraction or an exponent");
    }
    return number(type, value, "");
}

// Stores a float or double value; `found` is the JSON text for messages.
bool ChunkAssembler::number(FieldType type, double value, const std::string& found) {
    Frame& frame = top();
    if (type == FieldType::F64) return storeValue(frame, value);
    if (type != FieldType::F32) return wrongType(found.empty() ? "a number" : "the number " + found);
    if (std::isfinite(value) && std::fabs(value) >= kFloatOverflow) {
        return fail(std::string("expected a number in the range of a float, found ") +
                    std::string(doubleToJson(value).view()));
    }
    return storeValue(frame, static_cast<float>(value));
}

template <typename Value>
bool ChunkAssembler::storeValue(Frame& frame, Value value) {
    frame.pending.put(frame.key, value);
    frame.pending.seen |= 1u << frame.key;
    frame.key = -1;
    return true;
}

bool ChunkAssembler::store(Frame& frame, uint64_t bits) {
    frame.pending.values[frame.key] = bits;
    frame.pending.seen |= 1u << frame.key;
    frame.key = -1;
    return true;
}

bool ChunkAssembler::deliverOffset(uoffset_t offset) {
    if (depth_ == 0) return true;
    Frame& parent = top();
    if (parent.isArray) {
        parent.offsets.push_back(TableOffset(offset));
        return true;
    }
    return store(parent, offset);
}

bool ChunkAssembler::finishChunk(TableOffset root) {
    fbb_.Finish(Offset<fb::LogChunk>(root.o));
    const uint8_t* data = fbb_.GetBufferPointer();
    const uint32_t size = fbb_.GetSize();
    if (!FlatBufferReaderUtil::verifyChunk(data, size)) {
        return fail("the encoded chunk fails the log verifier");
    }
    const uint8_t length[4] = {static_cast<uint8_t>(size), static_cast<uint8_t>(size >> 8),
                               static_cast<uint8_t>(size >> 16),
                               static_cast<uint8_t>(size >> 24)};
    out_.write(length, sizeof length);
    out_.write(data, size);
    fbb_.Clear();
    ++chunkCount_;
    if (out_.failed()) {
        error_ = out_.error();
        return false;
    }
    return true;
}

bool ChunkAssembler::ensureRoom(size_t extra) {
    if (fbb_.GetSize() + extra + kTableHeadroom > kMaximumChunkSize) {
        return fail("the chunk grows beyond " + std::to_string(kMaximumChunkSize) +
                    " bytes, the largest chunk the log verifier accepts");
    }
    return true;
}

bool ChunkAssembler::wrongType(const std::string& found) {
    if (depth_ == 0) {
        return fail("expected an object with a \"chunks\" array, found " + found);
    }
    return fail(std::string("expected ") + expectedText(targetType(top())) + ", found " + found);
}

bool ChunkAssembler::fail(const std::string& message) {
    if (!error_.empty()) return false;
    const std::string where = path();
    error_ = (where.empty() ? std::string() : where + ": ") + message + " (JSON offset " +
             std::to_string(position_()) + ")";
    return false;
}

// Where the parser stands, e.g. chunks[0].messages[3].events[1].unit.
std::string ChunkAssembler::path() const {
    std::string text;
    for (size_t i = 0; i < depth_; ++i) {
        const Frame& frame = frames_[i];
        if (frame.isArray) {
            if (frame.count > 0) text += "[" + std::to_string(frame.count - 1) + "]";
        } else if (frame.key >= 0) {
            if (!text.empty()) text += ".";
            text += keyField(frame).key;
        }
    }
    return text;
}

template <typename Stream>
ConversionStatus encodeStream(Stream& stream, OutputSink& out) {
    ConversionStatus status;
    ChunkAssembler assembler(out, [&stream] { return stream.Tell(); });
    rapidjson::Reader reader;
    const rapidjson::ParseResult result =
        reader.Parse<rapidjson::kParseNumbersAsStringsFlag | rapidjson::kParseIterativeFlag>(
            stream, assembler);
    status.chunkCount = assembler.chunkCount();
    if (!assembler.error().empty()) {
        status.error = assembler.error();
    } else if (result.IsError()) {
        status.error = "invalid JSON at offset " + std::to_string(result.Offset()) + ": " +
                       rapidjson::GetParseError_En(result.Code());
    }
    return status;
}

}  // namespace

ConversionStatus encodeJsonFile(const std::string& path, OutputSink& out) {
    const InputFile input(path);
    if (input.get() == nullptr) {
        ConversionStatus status;
        status.error = input.error();
        return status;
    }
    std::vector<char> buffer(64 * 1024);
    rapidjson::FileReadStream stream(input.get(), buffer.data(), buffer.size());
    ConversionStatus status = encodeStream(stream, out);
    if (std::ferror(input.get())) {
        // A read error looks like the end of the JSON to the parser.
        status.error = std::string("cannot read: ") + std::strerror(errno);
    }
    return status;
}

ConversionStatus encodeJsonText(std::string_view json, OutputSink& out) {
    rapidjson::MemoryStream stream(json.data(), json.size());
    return encodeStream(stream, out);
}

}  // namespace profiling
}  // namespace vek
