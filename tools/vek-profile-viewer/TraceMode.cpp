#include <sstream>

#include "Modes.h"

namespace vek {
namespace viewer {

int runTraceMode(ViewerSession& session) {
    const ViewerOptions& options = session.options();
    const std::string& logPath = options.logPaths.front();
    ReaderPlugin::ReaderHandle reader = session.loadLog(
        logPath, ViewerSession::ReaderKind::Trace, ViewerSession::LogContent::SummariesOnly);
    if (!reader) return kExitFailure;

    const std::string outputPath = absolutePath(
        options.outputPath.empty() ? defaultTracePath(logPath) : options.outputPath);
    if (!session.prepareObjectDirectory(reader.get(), {outputPath})) return kExitFailure;
    const profiling::TraceFormat format = options.traceLayout == TraceLayout::Portable
                                              ? profiling::TraceFormat::Portable
                                              : profiling::TraceFormat::Exact;
    const int errorsBefore = session.libraryErrors();
    std::ostringstream summary;
    const bool written = session.writeOutputFile(
        outputPath, tools::OutputFile::Mode::kReplace,
        [&](std::ostream& trace) {
            return session.plugin().writeTrace(reader.get(), trace, summary, format);
        },
        "Invalid output chrometraceFile: [" + outputPath + "]");
    if (!written) return kExitFailure;
    // The summary appears only once the trace is safely in place.
    if (!session.printToStandardOutput(summary.str())) return kExitFailure;
    if (session.libraryErrors() != errorsBefore) {
        return ViewerSession::fail("some of the output could not be written");
    }
    if (format == profiling::TraceFormat::Portable &&
        session.plugin().countTraceSlices(reader.get()) == uint64_t{0}) {
        ViewerSession::note("the log has no op records to draw: the trace holds only the names "
                            "of its processes and threads");
    }
    ViewerSession::note("trace written to " + outputPath +
                        (format == profiling::TraceFormat::Portable
                             ? " (open it in Perfetto, chrome://tracing, the DevTools Performance "
                               "panel or speedscope)"
                             : " (open it in Perfetto or chrome://tracing)"));
    return kExitSuccess;
}

}  // namespace viewer
}  // namespace vek
