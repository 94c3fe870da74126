// The mutator of the structure-aware log target. Flipping bytes of a log
// mostly gives chunks the verifier refuses; this mutator unpacks a valid log
// (the object API the fuzz build generates: LogChunkT, LogMessageT,
// LogEventT), edits its structure and packs it again, so that almost every
// input passes verification and reaches loading, the statistics, the merges
// of the averaged summaries and every report. Inputs that are not a whole,
// valid log get libFuzzer's byte mutations instead.
//
// An edit is one of: a number set to an edge value, an event or graph named
// like another one, an event copied elsewhere, removed or moved, a list of
// events doubled, a method type, visibility, unit, value type or identifier
// changed (the identifiers that the reports give a meaning), a message
// copied or removed, a name's bytes mutated.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "chrometrace/LintingIdentifiers.h"
#include "log/FlatBufferReaderUtil.h"
#include "log/ProfileEvent.h"
#include "profile_log_generated.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace {

using namespace vek::profiling;
using EventList = std::vector<std::unique_ptr<fb::LogEventT>>;
using Chunks = std::vector<std::unique_ptr<fb::LogChunkT>>;
using Random = std::minstd_rand;

constexpr size_t kLengthFieldSize = 4;

// The chunks of a whole, valid log; false for anything else.
bool unpack(const uint8_t* data, size_t size, Chunks& chunks) {
    std::vector<uint8_t> body;  // aligned, as the verifier wants it
    for (size_t offset = 0; offset < size;) {
        if (size - offset < kLengthFieldSize) return false;
        const uint32_t length = static_cast<uint32_t>(data[offset]) |
                                static_cast<uint32_t>(data[offset + 1]) << 8 |
                                static_cast<uint32_t>(data[offset + 2]) << 16 |
                                static_cast<uint32_t>(data[offset + 3]) << 24;
        offset += kLengthFieldSize;
        if (length > size - offset) return false;
        body.assign(data + offset, data + offset + length);
        if (!FlatBufferReaderUtil::verifyChunk(body.data(), body.size())) return false;
        chunks.emplace_back(fb::GetLogChunk(body.data())->UnPack());
        offset += length;
    }
    return true;
}

// The log's bytes in `out`; 0 when they do not fit in `maxSize`.
size_t pack(const Chunks& chunks, uint8_t* out, size_t maxSize) {
    flatbuffers::FlatBufferBuilder builder;
    size_t size = 0;
    for (const auto& chunk : chunks) {
        builder.Clear();
        builder.Finish(fb::LogChunk::Pack(builder, chunk.get()));
        const uint32_t length = builder.GetSize();
        if (maxSize - size < kLengthFieldSize + length) return 0;
        for (int shift = 0; shift < 32; shift += 8)
            out[size++] = static_cast<uint8_t>(length >> shift);
        std::memcpy(out + size, builder.GetBufferPointer(), length);
        size += length;
    }
    return size;
}

template <typename Value>
Value edgeValue(Random& random) {
    using Limits = std::numeric_limits<Value>;
    const Value edges[] = {0,
                           1,
                           Limits::max(),
                           Limits::min(),
                           static_cast<Value>(Limits::max() - 1),
                           static_cast<Value>(-1),
                           static_cast<Value>(Limits::max() / 2 + 1)};
    if (random() % 4 == 0) return static_cast<Value>(random() * uint64_t{2654435761u});
    return edges[random() % (sizeof edges / sizeof edges[0])];
}

template <typename Value>
Value edgeFloat(Random& random) {
    using Limits = std::numeric_limits<Value>;
    const Value edges[] = {0,
                           -Value(0),
                           1,
                           Limits::max(),
                           Limits::lowest(),
                           Limits::denorm_min(),
                           Limits::infinity(),
                           -Limits::infinity(),
                           Limits::quiet_NaN(),
                           Value(1e-30),
                           Value(0.5)};
    return edges[random() % (sizeof edges / sizeof edges[0])];
}

// The identifiers that the statistics and the trace builder give a meaning.
uint32_t meaningfulIdentifier(Random& random) {
    const uint32_t identifiers[] = {
        kInitEventIdentifier,    kOpRecordIdentifier,         kQueueWaitIdentifier,
        kWaitDurationIdentifier, kOpBackgroundIdentifier,     kWaitBackgroundIdentifier,
        kResourceMaskIdentifier, kOpBackgroundNameIdentifier, kWaitBackgroundNameIdentifier,
        kHiddenIdentifierFirst,  kHiddenIdentifierLast,       0};
    return identifiers[random() % (sizeof identifiers / sizeof identifiers[0])];
}

// Everything an edit can reach, gathered once per mutation.
struct LogParts {
    std::vector<fb::LogMessageT*> messages;
    std::vector<EventList*> lists;  // every message's events and every event's children
    std::vector<fb::LogEventT*> events;
    std::vector<fb::LogHeaderT*> headers;

    explicit LogParts(Chunks& chunks) {
        for (auto& chunk : chunks) {
            if (chunk->header) headers.push_back(chunk->header.get());
            for (auto& message : chunk->messages) {
                messages.push_back(message.get());
                addList(message->events);
            }
        }
    }
    void addList(EventList& list) {
        lists.push_back(&list);
        for (auto& event : list) {
            events.push_back(event.get());
            addList(event->subEvents);
        }
    }
};

template <typename Item>
Item* pick(std::vector<Item*>& items, Random& random) {
    return items.empty() ? nullptr : items[random() % items.size()];
}

void setEventNumber(fb::LogEventT& event, Random& random) {
    switch (random() % 8) {
        case 0:
            event.identifier =
                random() % 2 ? meaningfulIdentifier(random) : edgeValue<uint32_t>(random);
            break;
        case 1: event.uint64Value = edgeValue<uint64_t>(random); break;
        case 2:
            event.unit =
                random() % 3 ? static_cast<uint32_t>(random() % 8) : edgeValue<uint32_t>(random);
            break;
        case 3:
            event.valueType =
                random() % 3 ? static_cast<int32_t>(random() % 8) : edgeValue<int32_t>(random);
            break;
        case 4: event.int64Value = edgeValue<int64_t>(random); break;
        case 5: event.floatValue = edgeFloat<float>(random); break;
        case 6: event.doubleValue = edgeFloat<double>(random); break;
        default: event.timestamp = edgeValue<uint64_t>(random); break;
    }
}

void setMessageNumber(fb::LogMessageT& message, Random& random) {
    switch (random() % 5) {
        case 0:
            message.methodType = static_cast<uint8_t>(random() % 3 ? random() % 19 : random());
            break;
        case 1: message.visibility = edgeValue<int8_t>(random); break;
        case 2: message.timing->startTime = edgeValue<uint64_t>(random); break;
        case 3: message.timing->endTime = edgeValue<uint64_t>(random); break;
        default: message.stamp->timestamp = edgeValue<uint64_t>(random); break;
    }
}

void setHeaderNumber(fb::LogHeaderT& header, Random& random) {
    switch (random() % 3) {
        case 0: header.timeScale = edgeFloat<float>(random); break;
        case 1: header.epochTimestamp = edgeValue<uint64_t>(random); break;
        default: header.steadyClockTimestamp = edgeValue<uint64_t>(random); break;
    }
}

// Mutates the bytes of `text` with libFuzzer's own mutations.
void mutateText(std::string& text) {
    const size_t size = text.size();
    text.resize(size + 16);
    text.resize(LLVMFuzzerMutate(reinterpret_cast<uint8_t*>(text.data()), size, text.size()));
}

// One edit; false when the log has nothing it applies to.
bool edit(Chunks& chunks, Random& random) {
    LogParts parts(chunks);
    fb::LogEventT* event = pick(parts.events, random);
    fb::LogEventT* other = pick(parts.events, random);
    fb::LogMessageT* message = pick(parts.messages, random);
    EventList* list = pick(parts.lists, random);
    switch (random() % 12) {
        case 0:
            if (event == nullptr) return false;
            setEventNumber(*event, random);
            return true;
        case 1:
            if (message == nullptr) return false;
            setMessageNumber(*message, random);
            return true;
        case 2:
            if (parts.headers.empty()) return false;
            setHeaderNumber(*pick(parts.headers, random), random);
            return true;
        case 3:  // the statistics and the trace merge events by name
            if (event == nullptr) return false;
            event->name = other->name;
            return true;
        case 4: {
            fb::LogMessageT* second = pick(parts.messages, random);
            if (message == nullptr) return false;
            message->graphName = second->graphName;
            return true;
        }
        case 5:  // a copy of an event, anywhere (not inside itself: the copy is made first)
            if (event == nullptr || list == nullptr) return false;
            list->insert(list->begin() + static_cast<long>(random() % (list->size() + 1)),
                         std::make_unique<fb::LogEventT>(*event));
            return true;
        case 6:
            if (list == nullptr || list->empty()) return false;
            list->erase(list->begin() + static_cast<long>(random() % list->size()));
            return true;
        case 7:
            if (list == nullptr || list->size() < 2) return false;
            std::swap((*list)[random() % list->size()], (*list)[random() % list->size()]);
            return true;
        case 8: {  // a message copied into any chunk, or removed
            if (message == nullptr) return false;
            auto& target = chunks[random() % chunks.size()]->messages;
            const auto at = target.begin() + static_cast<long>(random() % (target.size() + 1));
            if (random() % 2 == 0) {
                target.insert(at, std::make_unique<fb::LogMessageT>(*message));
            } else if (!target.empty()) {
                target.erase(at == target.end() ? target.begin() : at);
            }
            return true;
        }
        case 9:
            if (event == nullptr) return false;
            mutateText(random() % 2 ? event->name : event->detail);
            return true;
        case 10: {  // a list doubled, so that wide levels (hashed by name) come soon
            if (list == nullptr || list->empty()) return false;
            const size_t count = list->size();
            for (size_t i = 0; i < count; ++i) {
                list->push_back(std::make_unique<fb::LogEventT>(*(*list)[i]));
            }
            return true;
        }
        default:
            if (message == nullptr) return false;
            mutateText(message->graphName);
            return true;
    }
}

}  // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize,
                                          unsigned int seed) {
    Chunks chunks;
    if (!unpack(data, size, chunks) || chunks.empty()) return LLVMFuzzerMutate(data, size, maxSize);
    Random random(seed);
    // One to three edits; a log with few parts may refuse some attempts.
    for (int edits = 1 + static_cast<int>(random() % 3), attempts = 16; edits > 0 && attempts > 0;
         --attempts) {
        edits -= edit(chunks, random) ? 1 : 0;
    }
    const size_t packed = pack(chunks, data, maxSize);
    return packed > 0 ? packed : LLVMFuzzerMutate(data, size, maxSize);
}

// Two logs crossed at chunk and message level: the first log with a run of
// the second's messages inserted into one of its chunks.
extern "C" size_t LLVMFuzzerCustomCrossOver(const uint8_t* data1, size_t size1,
                                            const uint8_t* data2, size_t size2, uint8_t* out,
                                            size_t maxOutSize, unsigned int seed) {
    Chunks first;
    Chunks second;
    if (!unpack(data1, size1, first) || !unpack(data2, size2, second) || first.empty()) return 0;
    Random random(seed);
    auto& target = first[random() % first.size()]->messages;
    for (auto& chunk : second) {
        const size_t from = chunk->messages.empty() ? 0 : random() % chunk->messages.size();
        for (size_t i = from; i < chunk->messages.size() && random() % 4 != 0; ++i) {
            target.insert(target.begin() + static_cast<long>(random() % (target.size() + 1)),
                          std::move(chunk->messages[i]));
        }
    }
    return pack(first, out, maxOutSize);
}
