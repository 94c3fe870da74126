#include "CheckCommand.h"

#include <cstdio>
#include <memory>

#include "InputFile.h"
#include "LogRefusal.h"
#include "log/LogScan.h"

namespace vek {
namespace profiling {

using tools::chunksAndMessages;

int runCheck(const std::string& logPath) {
    const char* const path = logPath.c_str();
    const std::unique_ptr<InputFile> input = openInput(logPath, true);
    if (!input) return 1;
    LogScanCallbacks callbacks;
    callbacks.problem = [path](const ChunkProblem& problem) {
        const std::string before =
            problem.kind == ChunkProblemKind::NotAProfileLog ? std::string()
            : problem.chunksBefore == 0
                ? " (nothing before it)"
                : " (" + chunksAndMessages(problem.chunksBefore, problem.messagesBefore) +
                      " before it)";
        std::printf("%s: %s%s\n", path, tools::describeChunkProblem(problem).c_str(),
                    before.c_str());
    };
    const LogScanSummary scan = scanLog(input->get(), ScanExtent::kWholeLog, callbacks);
    const auto bytes = static_cast<unsigned long long>(scan.prefixBytes);
    if (scan.problems == 0) {
        std::printf("%s: %s, %llu bytes: every chunk is whole and valid\n", path,
                    chunksAndMessages(scan.validChunks, scan.validMessages).c_str(), bytes);
    } else if (scan.prefixChunks > 0) {
        std::printf("%s: %llu problem%s; the first %s (%llu bytes) are whole and valid\n", path,
                    static_cast<unsigned long long>(scan.problems), scan.problems == 1 ? "" : "s",
                    chunksAndMessages(scan.prefixChunks, scan.prefixMessages).c_str(), bytes);
    }
    if (std::fflush(stdout) != 0) {
        std::fprintf(stderr, "vek-profile-log: writing to standard output failed\n");
        return 1;
    }
    return scan.problems == 0 ? 0 : 1;
}

}  // namespace profiling
}  // namespace vek
