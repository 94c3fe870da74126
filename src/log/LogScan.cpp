#include "log/LogScan.h"

#include "log/ChunkInput.h"

namespace vek {
namespace profiling {

LogScanSummary scanLog(std::FILE* file, ScanExtent extent, const LogScanCallbacks& callbacks) {
    LogScanSummary summary;
    ChunkInput input(file);
    ChunkBuffer buffer;
    const auto report = [&](const ChunkProblem& problem) {
        if (summary.problems++ == 0) summary.firstProblem = problem;
        if (callbacks.problem) callbacks.problem(problem);
    };
    for (;;) {
        const ChunkInput::Step step = input.next(buffer);
        if (step == ChunkInput::Step::kEnd) {
            const ChunkProblem end = input.endProblem();
            if (end.kind != ChunkProblemKind::None) report(end);
            break;
        }
        if (step == ChunkInput::Step::kProblem) {
            report(input.problem());
            break;
        }
        ++summary.chunks;
        if (!FlatBufferReaderUtil::verifyChunk(buffer.data(), buffer.size())) {
            report(input.invalidChunk());
            if (extent == ScanExtent::kValidPrefix) break;
            continue;
        }
        input.countValidChunk(messageCount(*fb::GetLogChunk(buffer.data())));
        if (summary.problems == 0) {
            if (callbacks.prefixChunk && !callbacks.prefixChunk(buffer)) {
                summary.stopped = true;
                break;
            }
            summary.prefixBytes = input.bytesRead();
            summary.prefixChunks = input.validChunks();
            summary.prefixMessages = input.validMessages();
        }
    }
    summary.validChunks = input.validChunks();
    summary.validMessages = input.validMessages();
    return summary;
}

}  // namespace profiling
}  // namespace vek
