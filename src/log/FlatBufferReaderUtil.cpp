#include "log/FlatBufferReaderUtil.h"

#include <algorithm>
#include <cstring>

#include "log/LogEventFields.h"
#include "logging/Log.h"

namespace vek {
namespace profiling {

namespace {
// Every table starts with a 4-byte offset to its vtable, so a chunk of N bytes
// holds at most N / 4 tables.
constexpr size_t kSmallestTableSize = 4;
// How many bytes of text and byte values loading may copy out of a chunk, per
// byte of the chunk, and a fixed allowance for small chunks. A writer that
// shares a name among many events copies it once per event; this leaves room
// for that and refuses a chunk that points thousands of events at one long
// string.
constexpr uint64_t kCopiesPerChunkByte = 16;
constexpr uint64_t kCopyAllowance = 1u << 16;

uint64_t stringSize(const flatbuffers::String* text) { return text != nullptr ? text->size() : 0; }

// Adds the bytes that converting `events` copies (names, details, string and
// byte values, all levels) to `total`; false as soon as it passes `limit`.
// Every event of a log passes through here, so each is read in one go.
bool addEventCopies(const LogEventVector* events, uint64_t limit, uint64_t& total) {
    if (events == nullptr) return true;
    using fb::LogEvent;
    for (const fb::LogEvent* event : *events) {
        const LogEventFields fields(*event);
        total += stringSize(fields.pointer<flatbuffers::String>(LogEvent::VT_NAME)) +
                 stringSize(fields.pointer<flatbuffers::String>(LogEvent::VT_DETAIL)) +
                 stringSize(fields.pointer<flatbuffers::String>(LogEvent::VT_STRINGVALUE));
        using Bytes = flatbuffers::Vector<uint8_t>;
        const auto* bytes = fields.pointer<Bytes>(LogEvent::VT_BYTESVALUE);
        if (bytes != nullptr) total += bytes->size();
        if (total > limit ||
            !addEventCopies(fields.pointer<LogEventVector>(LogEvent::VT_SUBEVENTS), limit, total)) {
            return false;
        }
    }
    return true;
}

// False when loading the verified chunk would copy far more bytes than the
// chunk holds: only possible when many tables share one string or vector.
bool copiesFitTheChunk(const fb::LogChunk& chunk, size_t size) {
    const uint64_t limit = kCopiesPerChunkByte * size + kCopyAllowance;
    uint64_t total = 0;
    const auto* messages = chunk.messages();
    if (messages == nullptr) return true;
    for (const fb::LogMessage* message : *messages) {
        total += stringSize(message->graphName());
        if (total > limit || !addEventCopies(message->events(), limit, total)) return false;
    }
    return true;
}
}  // namespace

flatbuffers::Verifier::Options FlatBufferReaderUtil::verifierOptions() {
    flatbuffers::Verifier::Options options;
    options.max_depth = 64;
    options.max_tables = 4294967295u;
    options.check_alignment = false;
    options.check_nested_flatbuffers = true;
    return options;
}

bool FlatBufferReaderUtil::hasValidRootOffset(const uint8_t* data, size_t size) {
    if (data == nullptr || size < kMinimumChunkSize || size >= kMaximumChunkSize) {
        return false;
    }
    uint32_t rootOffset = 0;
    std::memcpy(&rootOffset, data, sizeof rootOffset);
    const auto signedOffset = static_cast<int32_t>(rootOffset);
    return rootOffset != 0 && signedOffset > 0 && rootOffset <= size - 1;
}

bool FlatBufferReaderUtil::verifyChunk(const uint8_t* data, size_t size) {
    if (!hasValidRootOffset(data, size)) {
        return false;
    }
    flatbuffers::Verifier::Options options = verifierOptions();
    // Tables reached through shared offsets are verified (and later loaded)
    // once per path to them, which a hostile chunk can make exponential in
    // its size; no chunk written table by table visits more tables than it
    // can hold.
    options.max_tables = static_cast<flatbuffers::uoffset_t>(
        std::min<size_t>(options.max_tables, size / kSmallestTableSize));
    // The accessors read scalars in place, which is undefined behaviour (and
    // a fault on some processors) when they are misaligned. Every FlatBuffers
    // writer aligns each field within its buffer, so only a damaged or
    // hostile chunk fails this.
    options.check_alignment = true;
    flatbuffers::Verifier verifier(data, size, options);
    return verifier.VerifyBuffer<fb::LogChunk>(nullptr) &&
           copiesFitTheChunk(*fb::GetLogChunk(data), size);
}

bool FlatBufferReaderUtil::init(std::shared_ptr<ChunkBuffer> buffer) {
    const uint8_t* data = buffer ? buffer->data() : nullptr;
    const size_t size = buffer ? buffer->size() : 0;
    if (!verifyChunk(data, size)) {
        vekLog(kLogError, "Corrupted flatbuffer binary stream");
        return false;
    }
    root_ = fb::GetLogChunk(data);
    if (header_ == nullptr) {
        header_ = root_->header();
    }
    messages_ = root_->messages();
    messageCounter_ = 0;
    return true;
}

const fb::LogMessage* FlatBufferReaderUtil::nextMessage() {
    if (messages_ != nullptr && messageCounter_ < messages_->size()) {
        return messages_->Get(messageCounter_++);
    }
    vekLog(kLogDebug, "profiling::FlatBufferReaderUtil no more messages! (Message Counter: %d)",
           static_cast<int>(messageCounter_));
    return nullptr;
}

}  // namespace profiling
}  // namespace vek
