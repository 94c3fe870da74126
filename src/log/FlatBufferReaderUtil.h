// The view of the chunk currently being read: verifies one chunk buffer and
// hands out its messages one at a time, in place.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "profile_log_generated.h"

namespace vek {
namespace profiling {

using ChunkBuffer = std::vector<uint8_t>;

class FlatBufferReaderUtil {
public:
    FlatBufferReaderUtil() = default;
    virtual ~FlatBufferReaderUtil() = default;

    // Verifies the buffer as one chunk. On success remembers its root, its
    // message vector and (the first time only) its header; on failure logs
    // "Corrupted flatbuffer binary stream" and changes nothing.
    bool init(std::shared_ptr<ChunkBuffer> buffer);

    // The next message of the current chunk, or null when none is left.
    const fb::LogMessage* nextMessage();

    const fb::LogHeader* header() const { return header_; }
    const fb::LogChunk* root() const { return root_; }

    // The sizes of chunk the verifier can accept: [minimum, maximum).
    static constexpr size_t kMinimumChunkSize = 12;
    static constexpr size_t kMaximumChunkSize = 0x7fffffff;

    // Verifier limits applied to every chunk.
    static flatbuffers::Verifier::Options verifierOptions();
    // Framing checks made before the recursive verification.
    static bool hasValidRootOffset(const uint8_t* data, size_t size);
    // The whole verification of one chunk, without logging.
    static bool verifyChunk(const uint8_t* data, size_t size);

private:
    const fb::LogChunk* root_ = nullptr;
    const fb::LogHeader* header_ = nullptr;
    const flatbuffers::Vector<flatbuffers::Offset<fb::LogMessage>>* messages_ = nullptr;
    uint32_t messageCounter_ = 0;
};

}  // namespace profiling
}  // namespace vek
