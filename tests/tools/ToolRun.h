// The command-line tools run as processes, in a directory of the test's own.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "support/LogWriter.h"

namespace vek::profiling::testtools {

struct ToolRun {
    int status;  // -1 when the tool did not exit by itself
    std::string out, err;
};

inline ToolRun runTool(const testlog::TempDir& dir, const std::string& tool, const std::string& arguments) {
    const int status = std::system(("cd '" + dir.path() + "' && '" + tool + "' " + arguments +
                                    " > stdout.txt 2> stderr.txt").c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, testlog::readFile(dir.file("stdout.txt")),
            testlog::readFile(dir.file("stderr.txt"))};
}

}  // namespace vek::profiling::testtools
