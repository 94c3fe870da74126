#include "support/LogWriter.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "profile_log_generated.h"

namespace vek {
namespace profiling {
namespace testlog {
namespace {

using flatbuffers::FlatBufferBuilder;
using flatbuffers::Offset;

Offset<fb::LogEvent> buildEvent(FlatBufferBuilder& fbb, const EventSpec& spec) {
    Offset<flatbuffers::Vector<Offset<fb::LogEvent>>> subEvents = 0;
    if (spec.subEvents) {
        std::vector<Offset<fb::LogEvent>> children;
        for (const EventSpec& child : *spec.subEvents) {
            children.push_back(buildEvent(fbb, child));
        }
        subEvents = fbb.CreateVector(children);
    }
    const auto name = spec.name ? fbb.CreateString(*spec.name) : 0;
    const auto bytes = spec.bytesValue ? fbb.CreateVector(*spec.bytesValue) : 0;
    const auto detail = spec.detail ? fbb.CreateString(*spec.detail) : 0;
    const auto text = spec.stringValue ? fbb.CreateString(*spec.stringValue) : 0;
    fb::LogEventBuilder event(fbb);
    event.add_name(name);
    event.add_identifier(spec.identifier);
    event.add_uint64Value(spec.uint64Value);
    event.add_unit(spec.unit);
    event.add_subEvents(subEvents);
    event.add_valueType(spec.valueType);
    event.add_int64Value(spec.int64Value);
    event.add_floatValue(spec.floatValue);
    event.add_bytesValue(bytes);
    event.add_detail(detail);
    event.add_timestamp(spec.timestamp);
    event.add_doubleValue(spec.doubleValue);
    event.add_stringValue(text);
    return event.Finish();
}

Offset<fb::LogMessage> buildMessage(FlatBufferBuilder& fbb, const MessageSpec& spec) {
    Offset<flatbuffers::Vector<Offset<fb::LogEvent>>> events = 0;
    if (spec.events) {
        std::vector<Offset<fb::LogEvent>> list;
        for (const EventSpec& event : *spec.events) {
            list.push_back(buildEvent(fbb, event));
        }
        events = fbb.CreateVector(list);
    }
    const auto graphName = spec.graphName ? fbb.CreateString(*spec.graphName) : 0;
    const auto stamp = spec.omitStamp ? 0 : fb::CreateMessageStamp(fbb, spec.timestamp, 0);
    const auto timing =
        spec.omitTiming ? 0 : fb::CreateMessageTiming(fbb, spec.startTime, spec.endTime);
    // Built by hand rather than with the generated builder, whose Finish()
    // insists on the required fields that a corrupt message leaves out.
    const auto start = fbb.StartTable();
    if (!spec.omitStamp) fbb.AddOffset(fb::LogMessage::VT_STAMP, stamp);
    fbb.AddElement<uint8_t>(fb::LogMessage::VT_METHODTYPE, spec.methodType, 0);
    if (!spec.omitTiming) fbb.AddOffset(fb::LogMessage::VT_TIMING, timing);
    fbb.AddElement<int8_t>(fb::LogMessage::VT_VISIBILITY, spec.visibility, 0);
    if (spec.events) fbb.AddOffset(fb::LogMessage::VT_EVENTS, events);
    if (spec.graphName) fbb.AddOffset(fb::LogMessage::VT_GRAPHNAME, graphName);
    return Offset<fb::LogMessage>(fbb.EndTable(start));
}

Offset<fb::LogHeader> buildHeader(FlatBufferBuilder& fbb, const HeaderSpec& spec) {
    const auto version = spec.withVersion ? fb::CreateLogVersion(fbb, 1, 0, 0, 0) : 0;
    const auto toolVersion = spec.toolVersion ? fbb.CreateString(*spec.toolVersion) : 0;
    const auto backend = spec.backend ? fbb.CreateString(*spec.backend) : 0;
    const auto toolName = spec.toolName ? fbb.CreateString(*spec.toolName) : 0;
    return fb::CreateLogHeader(fbb, spec.timeScale, spec.epochTimestamp,
                               spec.steadyClockTimestamp, version, toolVersion, backend,
                               toolName);
}

}  // namespace

EventSpec EventSpec::u64(std::string name, uint64_t value, uint32_t unit, uint32_t identifier) {
    EventSpec spec;
    spec.name = std::move(name);
    spec.valueType = kValueUInt64;
    spec.uint64Value = value;
    spec.unit = unit;
    spec.identifier = identifier;
    return spec;
}

EventSpec EventSpec::i64(std::string name, int64_t value, uint32_t unit) {
    EventSpec spec;
    spec.name = std::move(name);
    spec.valueType = kValueInt64;
    spec.int64Value = value;
    spec.unit = unit;
    return spec;
}

EventSpec EventSpec::f32(std::string name, float value, uint32_t unit) {
    EventSpec spec;
    spec.name = std::move(name);
    spec.valueType = kValueFloat;
    spec.floatValue = value;
    spec.unit = unit;
    return spec;
}

EventSpec EventSpec::f64(std::string name, double value, uint32_t unit) {
    EventSpec spec;
    spec.name = std::move(name);
    spec.valueType = kValueDouble;
    spec.doubleValue = value;
    spec.unit = unit;
    return spec;
}

EventSpec EventSpec::text(std::string name, std::string value, uint32_t unit) {
    EventSpec spec;
    spec.name = std::move(name);
    spec.valueType = kValueString;
    spec.stringValue = std::move(value);
    spec.unit = unit;
    return spec;
}

EventSpec EventSpec::object(std::string name, std::vector<uint8_t> bytes, std::string fileName) {
    EventSpec spec;
    spec.name = std::move(name);
    spec.valueType = kValueBytes;
    spec.bytesValue = std::move(bytes);
    spec.detail = std::move(fileName);
    spec.unit = 5;
    return spec;
}

ChunkSpec& ChunkSpec::message(MessageSpec spec) {
    if (!messages) messages.emplace();
    messages->push_back(std::move(spec));
    return *this;
}

std::vector<uint8_t> buildChunk(const ChunkSpec& chunk) {
    FlatBufferBuilder fbb;
    const auto header = chunk.headerSpec ? buildHeader(fbb, *chunk.headerSpec) : 0;
    Offset<flatbuffers::Vector<Offset<fb::LogMessage>>> messages = 0;
    if (chunk.messages) {
        std::vector<Offset<fb::LogMessage>> list;
        for (const MessageSpec& message : *chunk.messages) {
            list.push_back(buildMessage(fbb, message));
        }
        messages = fbb.CreateVector(list);
    }
    fbb.Finish(fb::CreateLogChunk(fbb, header, messages));
    return std::vector<uint8_t>(fbb.GetBufferPointer(), fbb.GetBufferPointer() + fbb.GetSize());
}

std::vector<uint8_t> lengthPrefixed(const std::vector<uint8_t>& body) {
    const auto size = static_cast<uint32_t>(body.size());
    std::vector<uint8_t> out = {static_cast<uint8_t>(size), static_cast<uint8_t>(size >> 8),
                                static_cast<uint8_t>(size >> 16),
                                static_cast<uint8_t>(size >> 24)};
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

ChunkSpec& LogWriter::chunk() {
    pieces_.push_back(Piece{ChunkSpec{}, {}, true});
    return *pieces_.back().chunk;
}

LogWriter& LogWriter::rawChunk(std::vector<uint8_t> body) {
    pieces_.push_back(Piece{std::nullopt, std::move(body), true});
    return *this;
}

LogWriter& LogWriter::rawBytes(std::vector<uint8_t> bytes) {
    pieces_.push_back(Piece{std::nullopt, std::move(bytes), false});
    return *this;
}

std::vector<uint8_t> LogWriter::bytes() const {
    std::vector<uint8_t> out;
    for (const Piece& piece : pieces_) {
        const std::vector<uint8_t> body = piece.chunk ? buildChunk(*piece.chunk) : piece.raw;
        const std::vector<uint8_t> framed = piece.prefixed ? lengthPrefixed(body) : body;
        out.insert(out.end(), framed.begin(), framed.end());
    }
    return out;
}

void LogWriter::writeTo(const std::string& path) const {
    const std::vector<uint8_t> data = bytes();
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
    if (!out) throw std::runtime_error("cannot write test log " + path);
}

TempDir::TempDir() {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "vek-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace testlog
}  // namespace profiling
}  // namespace vek
