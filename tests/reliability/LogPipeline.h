// Everything a host can do with one log file, and the log tool's decoding of
// it, for the fuzz target and the regression tests that replay its findings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>

#include "LogJsonDecoder.h"
#include "reader/VekProfileLogReader.h"
#include "reader/VekProfileLogReaderChrometrace.h"
#include "support/MemoryFile.h"

namespace vek {
namespace profiling {
namespace reliability {

// Loads `logPath` with both readers, with and without the load flag, and
// asks each for its output (a trace or a CSV file in `outputDirectory`) and
// its header. Outputs are requested after a refused load too: a host may do
// that, and the reports must cope with a half-filled model. Object files
// are written to the current directory.
inline void runWholePipeline(const std::string& logPath, const std::string& outputDirectory) {
    const auto level = static_cast<VisibilityLevel>(127);
    for (const bool chrome : {true, false}) {
        for (const bool loadFlag : {false, true}) {
            std::unique_ptr<VekProfileLogReader> reader;
            if (chrome) {
                reader = std::make_unique<VekProfileLogReaderChrometrace>(logPath, level);
            } else {
                reader = std::make_unique<VekProfileLogReader>(logPath, level);
            }
            reader->loadLog(loadFlag);
            reader->writeOutput(outputDirectory + (chrome ? "/trace.json" : "/summary.csv"));
            reader->printHeader();
        }
    }
}

// Decodes the log bytes with the log tool, as `vek-profile-log decode` does;
// true when the tool accepts them.
inline bool decodeWithTheTool(const uint8_t* data, size_t size) {
    const testlog::MemoryFile log(std::string(reinterpret_cast<const char*>(data), size));
    std::ostringstream json;
    return decodeLog(log.get(), json).ok();
}

}  // namespace reliability
}  // namespace profiling
}  // namespace vek
