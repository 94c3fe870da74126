// The log fuzz targets' work, replayed by the regression tests.
#pragma once

#include <ostream>

#include "LogJson.h"
#include "VekChrometraceProfilingReader.h"
#include "reader/VekProfileLogReader.h"
#include "reader/VekProfileLogReaderChrometrace.h"
#include "support/MemoryFile.h"

namespace vek::profiling::reliability {

// Keeps nothing (the fuzz sandbox may not open even /dev/null).
class DiscardingStream : public std::ostream {
public:
    DiscardingStream() : std::ostream(&buffer_) {}

private:
    struct Buffer : std::streambuf {
        int_type overflow(int_type c) override { return traits_type::not_eof(c); }
        std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
    } buffer_;
};

// Both readers, one with the load flag set (object files go to the current directory), each asked
// for its reports and header even after a refused load, as a host may do; the CSV goes to `csvPath`.
inline void runWholePipeline(const std::string& logPath, const std::string& csvPath, bool flagTheTraceReader) {
    const auto level = static_cast<VisibilityLevel>(127);
    DiscardingStream discard;
    VekProfileLogReaderChrometrace trace(logPath, level);
    trace.loadLog(flagTheTraceReader);
    writeTrace(&trace, discard, discard, TraceFormat::Exact);
    writeTrace(&trace, discard, discard, TraceFormat::Portable);
    trace.printHeader();
    VekProfileLogReader summary(logPath, level);
    summary.loadLog(!flagTheTraceReader);
    summary.writeOutput(csvPath);
    summary.printHeader();
}

// As `vek-profile-log decode` does; true when the tool accepts the bytes.
inline bool decodeWithTheTool(const uint8_t* data, size_t size) {
    const testlog::MemoryFile log(std::string(reinterpret_cast<const char*>(data), size));
    DiscardingStream json;
    return decodeLog(log.get(), json).ok();
}

}  // namespace vek::profiling::reliability
