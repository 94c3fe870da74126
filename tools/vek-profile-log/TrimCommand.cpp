#include "TrimCommand.h"

#include <cstdio>
#include <memory>

#include "LogInput.h"
#include "LogRefusal.h"
#include "OutputSink.h"
#include "log/LogScan.h"

namespace vek {
namespace profiling {

using tools::chunksAndMessages;

int runTrim(const std::string& logPath, const std::string& outputPath) {
    const char* const path = logPath.c_str();
    const std::unique_ptr<InputFile> input = openLogInput(logPath);
    if (!input) return 1;
    std::string error;
    std::unique_ptr<OutputSink> out = OutputSink::openFile(outputPath, error);
    if (!out) {
        std::fprintf(stderr, "vek-profile-log: %s\n", error.c_str());
        return 1;
    }
    LogScanCallbacks callbacks;
    callbacks.prefixChunk = [&out](const ChunkBuffer& body) {
        const auto size = static_cast<uint32_t>(body.size());
        const uint8_t lengthField[4] = {static_cast<uint8_t>(size), static_cast<uint8_t>(size >> 8),
                                        static_cast<uint8_t>(size >> 16),
                                        static_cast<uint8_t>(size >> 24)};
        out->write(lengthField, sizeof lengthField);
        out->write(body.data(), body.size());
        return !out->failed();
    };
    const LogScanSummary scan = scanLog(input->get(), ScanExtent::kValidPrefix, callbacks);
    const ChunkProblem& problem = scan.firstProblem;
    if (scan.prefixChunks == 0 && !scan.stopped) {
        out->discard();
        std::fprintf(stderr, "vek-profile-log: %s: no whole, valid chunk to keep: %s\n", path,
                     tools::describeChunkProblem(problem).c_str());
        return 1;
    }
    if (scan.stopped || !out->finish()) {
        out->discard();
        std::fprintf(stderr, "vek-profile-log: %s\n", out->error().c_str());
        return 1;
    }
    if (problem.kind == ChunkProblemKind::None) {
        std::fprintf(stderr, "vek-profile-log: %s is whole: kept all %s\n", path,
                     chunksAndMessages(scan.prefixChunks, scan.prefixMessages).c_str());
    } else {
        std::fprintf(stderr,
                     "vek-profile-log: %s: kept the first %s (%llu bytes); dropped from %s\n", path,
                     chunksAndMessages(scan.prefixChunks, scan.prefixMessages).c_str(),
                     static_cast<unsigned long long>(scan.prefixBytes),
                     tools::describeChunkProblem(problem).c_str());
    }
    return 0;
}

}  // namespace profiling
}  // namespace vek
