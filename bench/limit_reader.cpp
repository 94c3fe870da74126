// vek-bench-limit: the yardstick of the benchmarks. Reads a profile log chunk
// by chunk into one reused buffer, verifies every chunk with the reader's
// verifier options and walks every message and event, reading every field,
// while building nothing. No reader of the log can be faster than this.
//
//   vek-bench-limit LOG
#include <cstdint>
#include <cstdio>
#include <memory>

#include "log/FlatBufferReaderUtil.h"
#include "profile_log_generated.h"

namespace {

using vek::profiling::FlatBufferReaderUtil;
namespace fb = vek::profiling::fb;

// What the walk read, folded so that no read can be optimised away.
struct Tally {
    uint64_t chunks = 0;
    uint64_t messages = 0;
    uint64_t events = 0;
    uint64_t checksum = 0;

    void add(uint64_t value) { checksum = (checksum ^ value) * 0x100000001B3ull; }
    void add(const flatbuffers::String* text) {
        if (text == nullptr) return;
        add(text->size());
        if (text->size() != 0) add(static_cast<uint8_t>(text->c_str()[0]));
    }
};

void walkEvents(const flatbuffers::Vector<flatbuffers::Offset<fb::LogEvent>>* events,
                Tally& tally) {
    if (events == nullptr) return;
    for (const fb::LogEvent* event : *events) {
        ++tally.events;
        tally.add(event->name());
        tally.add(event->identifier());
        tally.add(event->uint64Value());
        tally.add(event->unit());
        tally.add(static_cast<uint64_t>(event->valueType()));
        tally.add(static_cast<uint64_t>(event->int64Value()));
        tally.add(static_cast<uint64_t>(event->floatValue()));
        if (const auto* bytes = event->bytesValue()) {
            tally.add(bytes->size());
            for (uint8_t byte : *bytes) tally.add(byte);
        }
        tally.add(event->detail());
        tally.add(event->timestamp());
        tally.add(static_cast<uint64_t>(event->doubleValue()));
        tally.add(event->stringValue());
        walkEvents(event->subEvents(), tally);
    }
}

void walkChunk(const fb::LogChunk& chunk, Tally& tally) {
    ++tally.chunks;
    if (const fb::LogHeader* header = chunk.header()) {
        tally.add(header->epochTimestamp());
        tally.add(header->toolName());
        tally.add(header->toolVersion());
        tally.add(header->backend());
    }
    const auto* messages = chunk.messages();
    if (messages == nullptr) return;
    for (const fb::LogMessage* message : *messages) {
        ++tally.messages;
        tally.add(message->methodType());
        tally.add(static_cast<uint64_t>(message->visibility()));
        tally.add(message->stamp()->timestamp());
        tally.add(message->stamp()->sequence());
        tally.add(message->timing()->startTime());
        tally.add(message->timing()->endTime());
        tally.add(message->graphName());
        walkEvents(message->events(), tally);
    }
}

// The reader's framing checks and its verifier with the reader's options.
bool verify(const uint8_t* data, size_t size) {
    if (!FlatBufferReaderUtil::hasValidRootOffset(data, size)) return false;
    flatbuffers::Verifier verifier(data, size, FlatBufferReaderUtil::verifierOptions());
    return verifier.VerifyBuffer<fb::LogChunk>(nullptr);
}

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: vek-bench-limit LOG\n");
        return 2;
    }
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(argv[1], "rb"));
    if (!file) {
        std::fprintf(stderr, "vek-bench-limit: cannot open %s\n", argv[1]);
        return 1;
    }
    // One buffer for every chunk, grown when a chunk is larger, never zeroed.
    std::unique_ptr<uint8_t[]> buffer;
    size_t capacity = 0;
    Tally tally;
    for (;;) {
        uint8_t prefix[4];
        if (std::fread(prefix, 1, sizeof prefix, file.get()) != sizeof prefix) break;
        const uint32_t length = static_cast<uint32_t>(prefix[0]) |
                                static_cast<uint32_t>(prefix[1]) << 8 |
                                static_cast<uint32_t>(prefix[2]) << 16 |
                                static_cast<uint32_t>(prefix[3]) << 24;
        if (length > capacity) {
            buffer.reset(new uint8_t[length]);
            capacity = length;
        }
        if (std::fread(buffer.get(), 1, length, file.get()) != length ||
            !verify(buffer.get(), length)) {
            std::fprintf(stderr, "vek-bench-limit: corrupt chunk %llu\n",
                         static_cast<unsigned long long>(tally.chunks));
            return 1;
        }
        walkChunk(*fb::GetLogChunk(buffer.get()), tally);
    }
    std::printf("%llu chunks, %llu messages, %llu events, checksum %016llx\n",
                static_cast<unsigned long long>(tally.chunks),
                static_cast<unsigned long long>(tally.messages),
                static_cast<unsigned long long>(tally.events),
                static_cast<unsigned long long>(tally.checksum));
    return 0;
}
