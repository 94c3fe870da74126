// Walks a log's chunks without loading them: frames each one as loading
// does, verifies it with the loader's verifier and counts its messages, to
// tell whether and where a log is broken and which prefix of it is whole.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>

#include "VekChrometraceProfilingReader.h"
#include "log/FlatBufferReaderUtil.h"

namespace vek {
namespace profiling {

enum class ScanExtent {
    kWholeLog,     // past chunks that fail verification, to the end of the framing
    kValidPrefix,  // up to the first problem
};

struct LogScanCallbacks {
    // Each problem, in file order; the scan keeps none of them.
    std::function<void(const ChunkProblem&)> problem;
    // Each chunk of the valid prefix (the body, without its length field);
    // returning false ends the scan there.
    std::function<bool(const ChunkBuffer&)> prefixChunk;
};

struct LogScanSummary {
    uint64_t chunks = 0;         // chunks framed, valid or not
    uint64_t validChunks = 0;
    uint64_t validMessages = 0;  // messages in the valid chunks
    uint64_t problems = 0;
    ChunkProblem firstProblem;   // kind None when the log is whole
    // The longest prefix of whole, valid chunks.
    uint64_t prefixBytes = 0;
    uint64_t prefixChunks = 0;
    uint64_t prefixMessages = 0;
    bool stopped = false;        // prefixChunk ended the scan
};

LogScanSummary scanLog(std::FILE* file, ScanExtent extent, const LogScanCallbacks& callbacks = {});

}  // namespace profiling
}  // namespace vek
