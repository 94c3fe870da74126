#include "support/LogWriter.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "profile_log_generated.h"

namespace vek::profiling::testlog {
namespace {

using flatbuffers::FlatBufferBuilder;
using flatbuffers::Offset;

template <typename Table, typename Description>
Offset<flatbuffers::Vector<Offset<Table>>> buildList(
    FlatBufferBuilder& fbb, const std::optional<std::vector<Description>>& descriptions,
    Offset<Table> (*build)(FlatBufferBuilder&, const Description&)) {
    if (!descriptions) return 0;
    std::vector<Offset<Table>> list;
    for (const Description& item : *descriptions) list.push_back(build(fbb, item));
    return fbb.CreateVector(list);
}

Offset<flatbuffers::String> text(FlatBufferBuilder& fbb, const std::optional<std::string>& value) {
    return value ? fbb.CreateString(*value) : 0;
}

Offset<fb::LogEvent> buildEvent(FlatBufferBuilder& fbb, const EventSpec& desc) {
    const auto subEvents = buildList(fbb, desc.subEvents, buildEvent);
    const auto name = text(fbb, desc.name), detail = text(fbb, desc.detail), stringValue = text(fbb, desc.stringValue);
    const auto bytes = desc.bytesValue ? fbb.CreateVector(*desc.bytesValue) : 0;
    return fb::CreateLogEvent(fbb, name, desc.identifier, desc.uint64Value, desc.unit, subEvents, desc.valueType,
                              desc.int64Value, desc.floatValue, bytes, detail, desc.timestamp, desc.doubleValue,
                              stringValue);
}

Offset<fb::LogMessage> buildMessage(FlatBufferBuilder& fbb, const MessageSpec& desc) {
    const auto events = buildList(fbb, desc.events, buildEvent);
    const auto graphName = text(fbb, desc.graphName);
    const auto stamp = desc.omitStamp ? 0 : fb::CreateMessageStamp(fbb, desc.timestamp, 0);
    const auto timing = desc.omitTiming ? 0 : fb::CreateMessageTiming(fbb, desc.startTime, desc.endTime);
    // By hand: the generated builder's Finish() insists on the fields a corrupt message leaves out.
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
    const auto version = fb::CreateLogVersion(fbb, 1, 0, 0, 0);
    const auto toolVersion = text(fbb, desc.toolVersion), backend = text(fbb, desc.backend);
    const auto toolName = text(fbb, desc.toolName);
    return fb::CreateLogHeader(fbb, desc.timeScale, desc.epochTimestamp, desc.steadyClockTimestamp,
                               version, toolVersion, backend, toolName);
}

// Element by element: GCC 12 warns falsely (array bounds, use after free) on vector copies.
void appendPiece(std::vector<uint8_t>& out, const std::vector<uint8_t>& body, bool prefixed) {
    for (unsigned shift = 0; prefixed && shift < 32; shift += 8) out.push_back(static_cast<uint8_t>(body.size() >> shift));
    out.insert(out.end(), body.begin(), body.end());
}

std::atomic<LogWrittenHook> logWrittenHook{nullptr};

}  // namespace

std::vector<uint8_t> buildChunk(const ChunkSpec& chunk) {
    FlatBufferBuilder fbb;
    const auto header = chunk.headerSpec ? buildHeader(fbb, *chunk.headerSpec) : 0;
    const auto messages = buildList(fbb, chunk.messages, buildMessage);
    fbb.Finish(fb::CreateLogChunk(fbb, header, messages));
    return std::vector<uint8_t>(fbb.GetBufferPointer(), fbb.GetBufferPointer() + fbb.GetSize());
}

std::vector<uint8_t> lengthPrefixed(const std::vector<uint8_t>& body) {
    std::vector<uint8_t> out;
    out.reserve(body.size() + 4);
    appendPiece(out, body, true);
    return out;
}

ChunkSpec& LogWriter::chunk() {
    // In place: moving a fresh Piece in makes GCC 12 warn falsely at -O3.
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
        appendPiece(out, piece.chunk ? buildChunk(*piece.chunk) : piece.raw, piece.prefixed);
    }
    return out;
}

void setLogWrittenHook(LogWrittenHook hook) { logWrittenHook = hook; }

void LogWriter::writeTo(const std::string& path) const {
    const std::vector<uint8_t> data = bytes();
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
    if (!out) throw std::runtime_error("cannot write test log " + path);
    if (const LogWrittenHook hook = logWrittenHook) hook(data);
}

TempDir::TempDir() : path_((std::filesystem::temp_directory_path() / "vek-test-XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
}

TempDir::~TempDir() { std::error_code ignored; std::filesystem::remove_all(path_, ignored); }

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace vek::profiling::testlog
