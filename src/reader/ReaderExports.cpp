// The plug-in's entry points.
#include <new>

#include "VekChrometraceProfilingReader.h"
#include "reader/VekProfileLogReaderChrometrace.h"

using vek::profiling::IVekProfileLogReader;
using vek::profiling::VisibilityLevel;

extern "C" IVekProfileLogReader<VisibilityLevel>* createReader(const std::string& logFilePath,
                                                                VisibilityLevel level) {
    return new (std::nothrow) vek::profiling::VekProfileLogReaderChrometrace(logFilePath, level);
}

extern "C" void deleteReader(IVekProfileLogReader<VisibilityLevel>* reader) {
    delete reader;  // null is ignored
}

namespace vek {
namespace profiling {

IVekProfileLogReader<VisibilityLevel>* createSummaryReader(const std::string& logFilePath,
                                                           VisibilityLevel level) {
    return new (std::nothrow) VekProfileLogReader(logFilePath, level);
}

}  // namespace profiling
}  // namespace vek
