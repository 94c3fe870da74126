#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>

#include "log/ChunkInput.h"
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

// Opens the log for binary reading; null for a missing file or a directory.
FileHandle openLog(const std::string& path) {
    FileHandle file(std::fopen(path.c_str(), "rb"));
    struct stat status {};
    if (file && (fstat(fileno(file.get()), &status) != 0 || S_ISDIR(status.st_mode))) {
        file.reset();
    }
    return file;
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
    FileHandle file = openLog(logFilePath);
    if (!file) {
        vekLog(kLogError, "Invalid or nonexistent file: %s", logFilePath.c_str());
        return false;
    }
    ChunkInput input(file.get());
    loadBreak = ChunkProblem{};
    const auto buffer = std::make_shared<ChunkBuffer>();
    for (;;) {
        const ChunkInput::Step step = input.next(*buffer);
        if (step == ChunkInput::Step::kEnd) {
            loadBreak = input.endProblem();  // a length field cut short ends the log normally
            break;
        }
        if (step == ChunkInput::Step::kProblem) {
            // Refused like a chunk that fails verification.
            vekLog(kLogError, "Corrupted flatbuffer binary stream");
            if (!stopsAtBreak(input.problem())) return false;
            break;
        }
        if (!messageStream.init(buffer)) {
            // init has logged the refusal; earlier chunks stay
            if (!stopsAtBreak(input.invalidChunk())) return false;
            break;
        }
        input.countValidChunk(messageCount(*messageStream.root()));
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
    file.reset();
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

// Remembers where the log breaks; true when loading is to finish there as at
// the end of the file (a salvage load), false when it is refused.
bool VekProfileLogReader::stopsAtBreak(const ChunkProblem& problem) {
    loadBreak = problem;
    return salvageLoad;
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
