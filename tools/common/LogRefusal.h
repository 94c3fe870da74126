// The texts with which the tools refuse a log: why a path cannot be one,
// told before reading it, and where a log breaks.
#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "VekChrometraceProfilingReader.h"

namespace vek {
namespace tools {

// Why `path` cannot be read as a profile log, judged before reading it; empty
// when it may be one. Each case has its own text. An empty file is a log
// without chunks to a reader, but nothing to report on.
inline std::string logFileRefusal(const std::string& path, bool acceptEmpty = false) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        if (errno == ENOENT) return "no such file";
        return std::string("cannot open: ") + std::strerror(errno);
    }
    if (S_ISDIR(status.st_mode)) return "is a directory, not a profile log";
    if (!acceptEmpty && S_ISREG(status.st_mode) && status.st_size == 0) {
        return "is empty, not a profile log";
    }
    return std::string();
}

// "chunk 2 at byte offset 8472: cut short: ..."; a file that is no log at
// all has no place worth naming.
inline std::string describeChunkProblem(const profiling::ChunkProblem& problem) {
    if (problem.kind == profiling::ChunkProblemKind::NotAProfileLog) return problem.reason;
    return "chunk " + std::to_string(problem.chunkIndex) + " at byte offset " +
           std::to_string(problem.byteOffset) + ": " + problem.reason;
}

// "2 chunks and 41 messages": what was read before a problem.
inline std::string chunksAndMessages(uint64_t chunks, uint64_t messages) {
    return std::to_string(chunks) + (chunks == 1 ? " chunk" : " chunks") + " and " +
           std::to_string(messages) + (messages == 1 ? " message" : " messages");
}

}  // namespace tools
}  // namespace vek
