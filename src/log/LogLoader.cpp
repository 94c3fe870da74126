#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>

#include "log/MessageHandlers.h"
#include "logging/Log.h"
#include "reader/VekProfileLogReader.h"

namespace vek {
namespace profiling {
namespace {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<std::FILE, FileCloser>;

// The open log and how many of its bytes are still unread. A stream without
// a size (a pipe) is read without that bound, in bounded steps.
struct LogInput {
    FileHandle file;
    bool sizeKnown = false;
    uint64_t remaining = 0;
};

// Opens the log for binary reading; false for a missing file or a directory.
bool openLog(const std::string& path, LogInput& input) {
    input.file.reset(std::fopen(path.c_str(), "rb"));
    if (!input.file) {
        return false;
    }
    struct stat status {};
    if (fstat(fileno(input.file.get()), &status) != 0 || S_ISDIR(status.st_mode)) {
        return false;
    }
    if (S_ISREG(status.st_mode)) {
        input.sizeKnown = true;
        input.remaining = static_cast<uint64_t>(status.st_size);
    }
    return true;
}

void consume(LogInput& input, size_t count) {
    if (input.sizeKnown) {
        input.remaining -= std::min<uint64_t>(input.remaining, count);
    }
}

enum class LengthRead { kLength, kEnd, kError };

// Reads the little-endian u32 that precedes every chunk. A length field cut
// short (1 to 3 bytes before the end) ends the log like a clean end.
LengthRead readChunkLength(LogInput& input, uint32_t& length) {
    uint8_t bytes[4] = {};
    const size_t got = std::fread(bytes, 1, sizeof bytes, input.file.get());
    consume(input, got);
    if (got < sizeof bytes) {
        return std::feof(input.file.get()) ? LengthRead::kEnd : LengthRead::kError;
    }
    length = static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
             static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
    return LengthRead::kLength;
}

// Reads the chunk body of `length` bytes into `buffer`, which is reused from
// chunk to chunk: its memory is touched once, not once per chunk, and only
// growth beyond the largest chunk so far is zero-filled. False when the file
// cannot supply that many bytes. With a known size the length is checked
// before anything is allocated, so a corrupt length never reserves memory the
// file cannot fill.
bool readChunkBody(LogInput& input, uint32_t length, ChunkBuffer& buffer) {
    if (input.sizeKnown) {
        if (length > input.remaining) {
            return false;
        }
        buffer.resize(length);
        const size_t got = std::fread(buffer.data(), 1, length, input.file.get());
        consume(input, got);
        return got == length;
    }
    // Without a size, the buffer only grows as data actually arrives.
    constexpr size_t kFirstStep = size_t{1} << 20;
    buffer.clear();
    size_t step = kFirstStep;
    while (buffer.size() < length) {
        const size_t filled = buffer.size();
        const size_t want = std::min<size_t>(step, length - filled);
        buffer.resize(filled + want);
        const size_t got = std::fread(buffer.data() + filled, 1, want, input.file.get());
        if (got < want) {
            return false;
        }
        step *= 2;
    }
    return true;
}

bool dispatchMessage(VekProfileLogReader& reader, const fb::LogMessage& message) {
    switch (message.methodType()) {
        case kMethodExecute:
            return recordExecution(reader, message);
        case kMethodExecuteRoundTrip:
            // Set before the handler runs, so even a hidden round-trip
            // message marks the log as measured that way.
            reader.hostRoundTrip = true;
            return recordExecution(reader, message);
        case kMethodFinalize:
        case kMethodFinalize2:
            return recordFinalize(reader, message);
        case kMethodBinaryInit:
            return recordBinaryInit(reader, message);
        case kMethodDeinit:
            return recordDeinit(reader, message);
        case kMethodContextCreate:
            return recordContextCreate(reader, message);
        case kMethodCompose:
            return recordCompose(reader, message);
        case kMethodNetRun:
            return recordNetRun(reader, message);
        case kMethodLibLoad:
            return recordLibLoad(reader, message);
        case kMethodApplyBinarySection:
        case kMethodApplyBinarySection2:
            return recordApplyBinarySection(reader, message);
        case kMethodContextGetBinarySize:
        case kMethodContextGetBinary:
            return recordContextBinaryCall(reader, message);
        case kMethodContextGetBinarySectionSize:
            return recordContextSectionCall(reader, message);
        case kMethodFinalizeAfterTensorUpdates:
            return recordFinalizeAfterUpdates(reader, message);
        case kMethodUpdateBinarySection:
            return recordUpdateBinarySection(reader, message);
        default:
            vekLog(kLogError, "Unknown method type.");
            return false;
    }
}

}  // namespace

bool VekProfileLogReader::loadLog(bool flag) {
    beginLoad(flag);
    LogInput input;
    if (!openLog(logFilePath, input)) {
        vekLog(kLogError, "Invalid or nonexistent file: %s", logFilePath.c_str());
        return false;
    }
    const auto buffer = std::make_shared<ChunkBuffer>();
    for (;;) {
        uint32_t length = 0;
        const LengthRead lengthRead = readChunkLength(input, length);
        if (lengthRead == LengthRead::kEnd) {
            break;
        }
        if (lengthRead != LengthRead::kLength || !readChunkBody(input, length, *buffer)) {
            // Refused like a chunk that fails verification.
            vekLog(kLogError, "Corrupted flatbuffer binary stream");
            return false;
        }
        if (!messageStream.init(buffer)) {
            return false;  // init has logged the refusal; earlier chunks stay
        }
        if (!headerSaved) {
            saveHeader();
        }
        reachedEof = false;
        while (!reachedEof) {
            readNextMessage();
        }
        // The stream points into the buffer about to be overwritten.
        messageStream = FlatBufferReaderUtil();
    }
    input.file.reset();
    loadFlag = flag;
    buildStatistics();
    if (hasBinaryInit) {
        initTimestamp = binaryInitTimestamp;
        initDuration = binaryInitDuration;
    } else if (hasFinalize) {
        initTimestamp = contextCreateTimestamp;
        initDuration = contextCreateDuration + composeDuration;
        for (const NamedSample& finalize : finalizes) {
            initDuration += finalize.netRunUs;
        }
    }
    return true;
}

bool VekProfileLogReader::readNextMessage() {
    const fb::LogMessage* message = messageStream.nextMessage();
    if (message == nullptr) {
        reachedEof = true;
        vekLog(kLogDebug, "profiling::VekProfileLogReader reached EOF!");
        return false;
    }
    return dispatchMessage(*this, *message);
}

}  // namespace profiling
}  // namespace vek
