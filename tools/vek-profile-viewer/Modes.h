// The modes of vek-profile-viewer, one file each. A mode loads what it needs
// through the session, writes its outputs and returns the exit status.
#pragma once

#include "ViewerSession.h"

namespace vek {
namespace viewer {

int runTraceMode(ViewerSession& session);
int runSummaryMode(ViewerSession& session);
int runHeaderMode(ViewerSession& session);

}  // namespace viewer
}  // namespace vek
