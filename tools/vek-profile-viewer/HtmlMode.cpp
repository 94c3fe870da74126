#include "Modes.h"

namespace vek {
namespace viewer {

int runHtmlMode(ViewerSession& session) {
    const ViewerOptions& options = session.options();
    const std::string& logPath = options.logPaths.front();
    // A log without op records still has its header, NetRun and phases.
    profiling::LogFigures figures;
    if (!session.loadOpFigures(logPath, false, figures)) return kExitFailure;
    const std::string outputPath = absolutePath(
        options.outputPath.empty() ? defaultReportPath(logPath) : options.outputPath);
    const bool written = session.writeOutputFile(
        outputPath, tools::OutputFile::Mode::kReplace,
        [&](std::ostream& out) { return session.plugin().writeHtmlReport(figures, out); },
        "cannot write " + outputPath);
    if (!written) return kExitFailure;
    ViewerSession::note("report written to " + outputPath);
    return kExitSuccess;
}

}  // namespace viewer
}  // namespace vek
