#include "log/FlatBufferReaderUtil.h"

#include <cstring>

#include "logging/Log.h"

namespace vek {
namespace profiling {

namespace {
constexpr size_t kMinimumChunkSize = 12;
// The largest buffer the verifier accepts.
constexpr size_t kMaximumChunkSize = 0x7fffffff;
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
    flatbuffers::Verifier verifier(data, size, verifierOptions());
    return verifier.VerifyBuffer<fb::LogChunk>(nullptr);
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
