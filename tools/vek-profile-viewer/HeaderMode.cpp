#include "Modes.h"

namespace vek {
namespace viewer {

int runHeaderMode(ViewerSession& session) {
    ReaderPlugin::ReaderHandle reader =
        session.loadLog(session.options().logPaths.front(), ViewerSession::ReaderKind::Trace,
                        ViewerSession::LogContent::SummariesOnly);
    if (!reader) return kExitFailure;
    const std::string header = reader->printHeader();
    if (header.empty()) return ViewerSession::fail("the log has no header");
    return session.printToStandardOutput(header) ? kExitSuccess : kExitFailure;
}

}  // namespace viewer
}  // namespace vek
