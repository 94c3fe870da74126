// The modes of vek-profile-viewer, one file each. A mode loads what it needs
// through the session, writes its outputs and returns the exit status.
#pragma once

#include "ViewerSession.h"

namespace vek {
namespace viewer {

int runTraceMode(ViewerSession& session);
int runSummaryMode(ViewerSession& session);
int runHeaderMode(ViewerSession& session);
int runTopMode(ViewerSession& session);
// Exit status 3 when --fail-above finds a graph that got slower.
int runDiffMode(ViewerSession& session);
int runHtmlMode(ViewerSession& session);

constexpr int kExitSlower = 3;

}  // namespace viewer
}  // namespace vek
