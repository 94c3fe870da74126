#include "TrimCommand.h"

#include <cstdio>
#include <memory>

#include "InputFile.h"
#include "LogRefusal.h"
#include "OutputFile.h"
#include "log/ChunkInput.h"
#include "log/LogScan.h"

namespace vek {
namespace profiling {

using tools::chunksAndMessages;

int runTrim(const std::string& logPath, const std::string& outputPath) {
    const char* const path = logPath.c_str();
    const std::unique_ptr<InputFile> input = openInput(logPath, true);
    if (!input) return 1;
    std::string error;
    // Whole or not at all: the output appears only when commit() succeeds.
    std::unique_ptr<tools::OutputFile> out =
        tools::OutputFile::open(outputPath, tools::OutputFile::Mode::kReplace, error);
    if (!out) {
        std::fprintf(stderr, "vek-profile-log: cannot write %s: %s\n", outputPath.c_str(),
                     error.c_str());
        return 1;
    }
    LogScanCallbacks callbacks;
    callbacks.prefixChunk = [&out](const ChunkBuffer& body) {
        return writeChunk(out->stream(), body.data(), static_cast<uint32_t>(body.size()));
    };
    const LogScanSummary scan = scanLog(input->get(), ScanExtent::kValidPrefix, callbacks);
    const ChunkProblem& problem = scan.firstProblem;
    if (scan.prefixChunks == 0 && !scan.stopped) {
        std::fprintf(stderr, "vek-profile-log: %s: no whole, valid chunk to keep: %s\n", path,
                     tools::describeChunkProblem(problem).c_str());
        return 1;
    }
    if (!out->commit(error) || scan.stopped) {
        std::fprintf(stderr, "vek-profile-log: cannot write %s: %s\n", outputPath.c_str(),
                     error.empty() ? "write error" : error.c_str());
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
