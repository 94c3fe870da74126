// vek-profile-viewer: loads a reader plug-in and turns a profile log into a
// trace, reports or views; each mode is in a file of its own.
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "Modes.h"
#include "ViewerOptions.h"
#include "ViewerSession.h"

namespace {

using namespace vek::viewer;

int runMode(ViewerSession& session) {
    switch (session.options().mode) {
        case OutputMode::Trace:
            return runTraceMode(session);
        case OutputMode::Summary:
            return runSummaryMode(session);
        case OutputMode::Header:
            return runHeaderMode(session);
        case OutputMode::Top:
            return runTopMode(session);
        case OutputMode::Diff:
            return runDiffMode(session);
        case OutputMode::Html:
            return runHtmlMode(session);
    }
    return kExitUsage;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const ParseResult parsed = parseViewerOptions(arguments);
    if (!parsed.options) {
        if (parsed.exitStatus == kExitSuccess) {
            std::cout << parsed.text;
            std::cout.flush();
            return std::cout.good() ? kExitSuccess : kExitFailure;
        }
        std::cerr << "vek-profile-viewer: " << parsed.text << "\n"
                  << "Try 'vek-profile-viewer --help' for more information.\n";
        return parsed.exitStatus;
    }
    try {
        ViewerSession session(*parsed.options);
        if (!session.start()) return kExitFailure;
        return runMode(session);
    } catch (const std::exception& exception) {
        return ViewerSession::fail(exception.what());
    }
}
