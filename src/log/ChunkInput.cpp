#include "log/ChunkInput.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

namespace vek {
namespace profiling {
namespace {

constexpr size_t kLengthFieldSize = 4;

uint32_t littleEndian32(const uint8_t* bytes) {
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

bool isTextByte(uint8_t byte) {
    return byte == '\t' || byte == '\n' || byte == '\r' || (byte >= 0x20 && byte < 0x7f);
}

// What the first bytes of a file that is no profile log look like, for the
// message; empty when they look like nothing in particular.
std::string textLikeness(const uint8_t* bytes, size_t count) {
    if (count == 0 || !std::all_of(bytes, bytes + count, isTextByte)) return std::string();
    const uint8_t* first = std::find_if(bytes, bytes + count, [](uint8_t byte) {
        return byte != ' ' && byte != '\t' && byte != '\n' && byte != '\r';
    });
    if (first != bytes + count && (*first == '{' || *first == '[')) {
        return "it starts like JSON text, not with a chunk length";
    }
    return "it starts like text, not with a chunk length";
}

// A log cut inside its first chunk still starts like one: a length the
// verifier could accept, and a root offset pointing into the bytes present
// (writers put the root table near the start of the chunk). With too little
// left to judge, only a length field that reads as text gives a file away.
bool startsLikeACutChunk(uint32_t length, const uint8_t* body, uint64_t present,
                         const uint8_t* lengthField) {
    if (length < FlatBufferReaderUtil::kMinimumChunkSize ||
        length >= FlatBufferReaderUtil::kMaximumChunkSize) {
        return false;
    }
    if (present < kLengthFieldSize) return textLikeness(lengthField, kLengthFieldSize).empty();
    const uint32_t rootOffset = littleEndian32(body);
    return rootOffset > 0 && rootOffset < length && rootOffset < present;
}

std::string byteCount(uint64_t count) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

}  // namespace

ChunkInput::ChunkInput(std::FILE* file) : file_(file) {
    struct stat status {};
    const long position = std::ftell(file);
    if (fstat(fileno(file), &status) == 0 && S_ISREG(status.st_mode) && position >= 0 &&
        position <= status.st_size) {
        sizeKnown_ = true;
        remaining_ = static_cast<uint64_t>(status.st_size - position);
    }
}

size_t ChunkInput::readBytes(uint8_t* into, size_t count) {
    const size_t got = std::fread(into, 1, count, file_);
    offset_ += got;
    if (sizeKnown_) remaining_ -= std::min<uint64_t>(remaining_, got);
    return got;
}

ChunkInput::Step ChunkInput::next(ChunkBuffer& buffer) {
    if (problem_.kind != ChunkProblemKind::None) return Step::kProblem;
    if (started_) ++chunkIndex_;
    started_ = true;
    chunkOffset_ = offset_;
    const size_t got = readBytes(lengthField_, kLengthFieldSize);
    if (got < kLengthFieldSize) {
        if (std::ferror(file_)) {
            problem_ = problemHere(ChunkProblemKind::ReadError,
                                   std::string("read error: ") + std::strerror(errno));
            return Step::kProblem;
        }
        trailingBytes_ = got;
        return Step::kEnd;
    }
    const uint32_t length = littleEndian32(lengthField_);
    if (!readBody(length, buffer)) return Step::kProblem;
    return Step::kChunk;
}

// False with problem_ set when the file cannot supply `length` bytes. With a
// known size the length is checked before anything is allocated, so a corrupt
// length never reserves memory the file cannot fill; without one (a pipe) the
// buffer only grows as data actually arrives.
bool ChunkInput::readBody(uint32_t length, ChunkBuffer& buffer) {
    uint64_t have = 0;
    uint8_t start[kLengthFieldSize] = {};
    const uint8_t* present = start;
    if (sizeKnown_) {
        if (length > remaining_) {
            // Only the start is read, to tell a cut chunk from a file that is no log.
            have = remaining_;
            readBytes(start, std::min<uint64_t>(remaining_, sizeof start));
        } else {
            // Resized, not cleared: only growth beyond the largest chunk so far is zero-filled.
            buffer.resize(length);
            have = readBytes(buffer.data(), length);
            present = buffer.data();
        }
    } else {
        constexpr size_t kFirstStep = size_t{1} << 20;
        buffer.clear();
        for (size_t step = kFirstStep; have < length; step *= 2) {
            const size_t want = std::min<size_t>(step, length - have);
            buffer.resize(have + want);
            const size_t got = readBytes(buffer.data() + have, want);
            have += got;
            if (got < want) break;
        }
        present = buffer.data();
    }
    if (have == length) return true;
    if (std::ferror(file_)) {
        problem_ = problemHere(ChunkProblemKind::ReadError,
                               std::string("read error: ") + std::strerror(errno));
    } else if (chunkIndex_ == 0 && !startsLikeACutChunk(length, present, have, lengthField_)) {
        std::string reason = textLikeness(lengthField_, kLengthFieldSize);
        if (reason.empty()) {
            reason = "its first length field announces " + byteCount(length) + ", only " +
                     std::to_string(have) + " are there";
        }
        problem_ = problemHere(ChunkProblemKind::NotAProfileLog, "not a profile log: " + reason);
    } else {
        problem_ = problemHere(ChunkProblemKind::CutChunk,
                               "cut short: its length field announces " + byteCount(length) +
                                   ", only " + std::to_string(have) + " are there");
    }
    return false;
}

void ChunkInput::countValidChunk(uint64_t messages) {
    ++validChunks_;
    validMessages_ += messages;
}

ChunkProblem ChunkInput::endProblem() const {
    if (trailingBytes_ == 0) return ChunkProblem{};
    if (chunkIndex_ == 0) {
        std::string reason = textLikeness(lengthField_, trailingBytes_);
        if (reason.empty()) reason = "only " + byteCount(trailingBytes_) + ", too few for a chunk";
        return problemHere(ChunkProblemKind::NotAProfileLog, "not a profile log: " + reason);
    }
    return problemHere(ChunkProblemKind::TrailingBytes,
                       byteCount(trailingBytes_) +
                           " after the last chunk, too few for a length field");
}

ChunkProblem ChunkInput::invalidChunk() const {
    const uint64_t size = offset_ - chunkOffset_ - kLengthFieldSize;
    if (chunkIndex_ == 0) {
        std::string reason = textLikeness(lengthField_, kLengthFieldSize);
        if (reason.empty()) reason = "its first chunk (" + byteCount(size) + ") fails verification";
        return problemHere(ChunkProblemKind::NotAProfileLog, "not a profile log: " + reason);
    }
    return problemHere(ChunkProblemKind::InvalidChunk,
                       "the chunk of " + byteCount(size) + " fails verification");
}

ChunkProblem ChunkInput::problemHere(ChunkProblemKind kind, std::string reason) const {
    ChunkProblem problem;
    problem.kind = kind;
    problem.chunkIndex = chunkIndex_;
    problem.byteOffset = chunkOffset_;
    problem.chunksBefore = validChunks_;
    problem.messagesBefore = validMessages_;
    problem.reason = std::move(reason);
    return problem;
}

}  // namespace profiling
}  // namespace vek
