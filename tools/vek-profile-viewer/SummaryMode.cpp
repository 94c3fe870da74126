#include <sstream>

#include "Modes.h"

namespace vek {
namespace viewer {

int runSummaryMode(ViewerSession& session) {
    const ViewerOptions& options = session.options();
    const std::string csvPath = absolutePath(options.outputPath);
    // The CSV export lists every call; the text summary alone needs none.
    ReaderPlugin::ReaderHandle reader = session.loadLog(
        options.logPaths.front(), ViewerSession::ReaderKind::Summary,
        csvPath.empty() ? ViewerSession::LogContent::SummariesOnly
                        : ViewerSession::LogContent::EveryCall);
    if (!reader) return kExitFailure;

    if (!session.prepareObjectDirectory(reader.get(), {csvPath})) return kExitFailure;
    const int errorsBefore = session.libraryErrors();
    std::ostringstream report;
    if (csvPath.empty()) {
        if (!session.plugin().writeSummary(reader.get(), report, nullptr)) {
            return ViewerSession::fail("no output was written");
        }
    } else {
        // The CSV export extends an earlier file: it is copied, extended and
        // put back in place whole.
        const bool written = session.writeOutputFile(
            csvPath, tools::OutputFile::Mode::kAppend,
            [&](std::ostream& csv) { return session.plugin().writeSummary(reader.get(), report, &csv); },
            "Invalid output file: [" + csvPath + "]");
        if (!written) return kExitFailure;
    }
    if (!session.printToStandardOutput(report.str())) return kExitFailure;
    if (session.libraryErrors() != errorsBefore) {
        return ViewerSession::fail("some of the output could not be written");
    }
    return kExitSuccess;
}

}  // namespace viewer
}  // namespace vek
