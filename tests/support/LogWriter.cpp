#include "support/LogWriter.h"

#include <atomic>
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

Offset<fb::LogEvent> buildEvent(FlatBufferBuilder& fbb, const EventSpec& desc) {
    Offset<flatbuffers::Vector<Offset<fb::LogEvent>>> subEvents = 0;
    if (desc.subEvents) {
        std::vector<Offset<fb::LogEvent>> children;
        for (const EventSpec& child : *desc.subEvents) {
            children.push_back(buildEvent(fbb, child));
        }
        subEvents = fbb.CreateVector(children);
    }
    const auto name = desc.name ? fbb.CreateString(*desc.name) : 0;
    const auto bytes = desc.bytesValue ? fbb.CreateVector(*desc.bytesValue) : 0;
    const auto detail = desc.detail ? fbb.CreateString(*desc.detail) : 0;
    const auto text = desc.stringValue ? fbb.CreateString(*desc.stringValue) : 0;
    fb::LogEventBuilder event(fbb);
    event.add_name(name);
    event.add_identifier(desc.identifier);
    event.add_uint64Value(desc.uint64Value);
    event.add_unit(desc.unit);
    event.add_subEvents(subEvents);
    event.add_valueType(desc.valueType);
    event.add_int64Value(desc.int64Value);
    event.add_floatValue(desc.floatValue);
    event.add_bytesValue(bytes);
    event.add_detail(detail);
    event.add_timestamp(desc.timestamp);
    event.add_doubleValue(desc.doubleValue);
    event.add_stringValue(text);
    return event.Finish();
}

Offset<fb::LogMessage> buildMessage(FlatBufferBuilder& fbb, const MessageSpec& desc) {
    Offset<flatbuffers::Vector<Offset<fb::LogEvent>>> events = 0;
    if (desc.events) {
        std::vector<Offset<fb::LogEvent>> list;
        for (const EventSpec& event : *desc.events) {
            list.push_back(buildEvent(fbb, event));
        }
        events = fbb.CreateVector(list);
    }
    const auto graphName = desc.graphName ? fbb.CreateString(*desc.graphName) : 0;
    const auto stamp = desc.omitStamp ? 0 : fb::CreateMessageStamp(fbb, desc.timestamp, 0);
    const auto timing =
        desc.omitTiming ? 0 : fb::CreateMessageTiming(fbb, desc.startTime, desc.endTime);
    // Built by hand rather than with the generated builder, whose Finish()
    // insists on the required fields that a corrupt message leaves out.
    const auto start = fbb.StartTable();
    if (!desc.omitStamp) fbb.AddOffset(fb::LogMessage::VT_STAMP, stamp);
    fbb.AddElement<uint8_t>(fb::LogMessage::VT_METHODTYPE, desc.methodType, 0);
    if (!desc.omitTiming) fbb.AddOffset(fb::LogMessage::VT_TIMING, timing);
    fbb.AddElement<int8_t>(fb::LogMessage::VT_VISIBILITY, desc.visibility, 0);
    if (desc.events) fbb.AddOffset(fb::LogMessage::VT_EVENTS, events);
    if (desc.graphName) fbb.AddOffset(fb::LogMessage::VT_GRAPHNAME, graphName);
    return Offset<fb::LogMessage>(fbb.EndTable(start));
}

Offset<fb::LogHeader> buildHeader(FlatBufferBuilder& fbb, const HeaderSpec& desc) {
    const auto version = desc.withVersion ? fb::CreateLogVersion(fbb, 1, 0, 0, 0) : 0;
    const auto toolVersion = desc.toolVersion ? fbb.CreateString(*desc.toolVersion) : 0;
    const auto backend = desc.backend ? fbb.CreateString(*desc.backend) : 0;
    const auto toolName = desc.toolName ? fbb.CreateString(*desc.toolName) : 0;
    return fb::CreateLogHeader(fbb, desc.timeScale, desc.epochTimestamp,
                               desc.steadyClockTimestamp, version, toolVersion, backend,
                               toolName);
}

}  // namespace

EventSpec EventSpec::u64(std::string name, uint64_t value, uint32_t unit, uint32_t identifier) {
    EventSpec desc;
    desc.name = std::move(name);
    desc.valueType = kValueUInt64;
    desc.uint64Value = value;
    desc.unit = unit;
    desc.identifier = identifier;
    return desc;
}

EventSpec EventSpec::i64(std::string name, int64_t value, uint32_t unit) {
    EventSpec desc;
    desc.name = std::move(name);
    desc.valueType = kValueInt64;
    desc.int64Value = value;
    desc.unit = unit;
    return desc;
}

EventSpec EventSpec::f32(std::string name, float value, uint32_t unit) {
    EventSpec desc;
    desc.name = std::move(name);
    desc.valueType = kValueFloat;
    desc.floatValue = value;
    desc.unit = unit;
    return desc;
}

EventSpec EventSpec::f64(std::string name, double value, uint32_t unit) {
    EventSpec desc;
    desc.name = std::move(name);
    desc.valueType = kValueDouble;
    desc.doubleValue = value;
    desc.unit = unit;
    return desc;
}

EventSpec EventSpec::text(std::string name, std::string value, uint32_t unit) {
    EventSpec desc;
    desc.name = std::move(name);
    desc.valueType = kValueString;
    desc.stringValue = std::move(value);
    desc.unit = unit;
    return desc;
}

EventSpec EventSpec::object(std::string name, std::vector<uint8_t> bytes, std::string fileName) {
    EventSpec desc;
    desc.name = std::move(name);
    desc.valueType = kValueBytes;
    desc.bytesValue = std::move(bytes);
    desc.detail = std::move(fileName);
    desc.unit = 5;
    return desc;
}

ChunkSpec& ChunkSpec::message(MessageSpec desc) {
    if (!messages) messages.emplace();
    messages->push_back(std::move(desc));
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

namespace {
// Appends `body` to `out`, after its u32 little-endian length when `prefixed`.
// Written element by element: GCC 12 reports false array-bounds and
// use-after-free warnings on the vector copies of the obvious version.
void appendPiece(std::vector<uint8_t>& out, const std::vector<uint8_t>& body, bool prefixed) {
    if (prefixed) {
        const auto size = static_cast<uint32_t>(body.size());
        for (unsigned shift = 0; shift < 32; shift += 8) {
            out.push_back(static_cast<uint8_t>(size >> shift));
        }
    }
    out.insert(out.end(), body.begin(), body.end());
}
}  // namespace

std::vector<uint8_t> lengthPrefixed(const std::vector<uint8_t>& body) {
    std::vector<uint8_t> out;
    out.reserve(body.size() + 4);
    appendPiece(out, body, true);
    return out;
}

ChunkSpec& LogWriter::chunk() {
    // Built in place: moving a fresh Piece in makes GCC 12 warn (falsely)
    // of uninitialised members at -O3.
    Piece& piece = pieces_.emplace_back();
    piece.prefixed = true;
    return piece.chunk.emplace();
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
        if (piece.chunk) {
            appendPiece(out, buildChunk(*piece.chunk), piece.prefixed);
        } else {
            appendPiece(out, piece.raw, piece.prefixed);
        }
    }
    return out;
}

namespace {
std::atomic<LogWrittenHook> logWrittenHook{nullptr};
}  // namespace

void setLogWrittenHook(LogWrittenHook hook) { logWrittenHook = hook; }

void LogWriter::writeTo(const std::string& path) const {
    const std::vector<uint8_t> data = bytes();
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
    if (!out) throw std::runtime_error("cannot write test log " + path);
    if (const LogWrittenHook hook = logWrittenHook) hook(data);
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
