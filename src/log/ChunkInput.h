// The chunk framing of a log: reads one length-prefixed chunk body at a time,
// knows where each chunk starts, and describes what breaks the framing. The
// loader and the log scan read logs through it, so both find the same breaks.
#pragma once

#include <cstdint>
#include <cstdio>
#include <ostream>

#include "VekChrometraceProfilingReader.h"
#include "log/FlatBufferReaderUtil.h"

namespace vek {
namespace profiling {

class ChunkInput {
public:
    // Reads from `file`, which stays the caller's. A regular file's size
    // bounds every chunk before anything is allocated for it.
    explicit ChunkInput(std::FILE* file);

    enum class Step {
        kChunk,    // the next chunk's body is in the buffer
        kEnd,      // the input ended; endProblem() tells whether cleanly
        kProblem,  // the body cannot be read whole (problem()); reading stops here
    };

    // Reads the next chunk's body into `buffer`, which is reused from chunk to
    // chunk: its memory is touched once, not once per chunk.
    Step next(ChunkBuffer& buffer);

    // Counts the chunk just read as whole and valid, holding `messages`.
    void countValidChunk(uint64_t messages);

    // What ended the input: kind None for a clean end, TrailingBytes for a
    // length field cut short (which readers ignore).
    ChunkProblem endProblem() const;
    // Why the last next() returned kProblem.
    const ChunkProblem& problem() const { return problem_; }
    // The chunk just read, described as failing verification.
    ChunkProblem invalidChunk() const;

    uint64_t chunkIndex() const { return chunkIndex_; }
    // Offset of the length field of the chunk last read (or attempted).
    uint64_t chunkOffset() const { return chunkOffset_; }
    // Bytes read so far: after kChunk, where the chunk ends.
    uint64_t bytesRead() const { return offset_; }
    uint64_t validChunks() const { return validChunks_; }
    uint64_t validMessages() const { return validMessages_; }

private:
    bool readBody(uint32_t length, ChunkBuffer& buffer);
    size_t readBytes(uint8_t* into, size_t count);
    ChunkProblem problemHere(ChunkProblemKind kind, std::string reason) const;

    std::FILE* file_;
    bool sizeKnown_ = false;
    uint64_t remaining_ = 0;  // unread bytes, when the size is known
    uint64_t offset_ = 0;     // bytes read so far
    uint64_t chunkIndex_ = 0;
    uint64_t chunkOffset_ = 0;
    bool started_ = false;
    uint8_t lengthField_[4] = {};
    size_t trailingBytes_ = 0;
    uint64_t validChunks_ = 0;
    uint64_t validMessages_ = 0;
    ChunkProblem problem_;
};

// Writes a chunk as a log holds it: its size as a little-endian u32, then
// its body. False when the stream fails.
inline bool writeChunk(std::ostream& out, const uint8_t* body, uint32_t size) {
    const char lengthField[4] = {static_cast<char>(size), static_cast<char>(size >> 8),
                                 static_cast<char>(size >> 16), static_cast<char>(size >> 24)};
    out.write(lengthField, sizeof lengthField).write(reinterpret_cast<const char*>(body), size);
    return out.good();
}

// The number of messages a verified chunk holds.
inline uint64_t messageCount(const fb::LogChunk& chunk) {
    return chunk.messages() != nullptr ? chunk.messages()->size() : 0;
}

}  // namespace profiling
}  // namespace vek
