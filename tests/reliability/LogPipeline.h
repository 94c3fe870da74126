// Everything a host can do with one log file, and the log tool's decoding of
// it, for the fuzz targets and the regression tests that replay their
// findings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <streambuf>
#include <string>

#include "LogJsonDecoder.h"
#include "VekChrometraceProfilingReader.h"
#include "reader/VekProfileLogReader.h"
#include "reader/VekProfileLogReaderChrometrace.h"
#include "support/MemoryFile.h"

namespace vek::profiling::reliability {

// Takes whatever is written and keeps none of it (the fuzz sandbox may not
// open even /dev/null).
class DiscardingStream : public std::ostream {
public:
    DiscardingStream() : std::ostream(&buffer_) {}

private:
    struct Buffer : std::streambuf {
        int_type overflow(int_type c) override { return traits_type::not_eof(c); }
        std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
    } buffer_;
};

// Loads `logPath` with both readers, one of them with the load flag set
// (which saves object files into the current directory; `flagTheTraceReader`
// says which), and asks each for its reports and its header. Reports are
// requested after a refused load too: a host may do that, and the reports
// must cope with a half-filled model. The trace goes to a discarding stream
// in both formats; the summary reader writes its CSV export to `csvPath`
// through writeOutput, as the viewer's summary mode does.
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

// Decodes the log bytes with the log tool, as `vek-profile-log decode` does;
// true when the tool accepts them.
inline bool decodeWithTheTool(const uint8_t* data, size_t size) {
    const testlog::MemoryFile log(std::string(reinterpret_cast<const char*>(data), size));
    DiscardingStream json;
    return decodeLog(log.get(), json).ok();
}

}  // namespace vek::profiling::reliability
