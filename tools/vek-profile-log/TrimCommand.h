// vek-profile-log trim LOG -o OUT: writes the longest prefix of whole, valid
// chunks of a log, so that a log cut short by a crash can be read.
#pragma once

#include <string>

namespace vek {
namespace profiling {

// Exit status: 0 when the prefix was written, 1 when the log holds no valid
// chunk or the output cannot be written.
int runTrim(const std::string& logPath, const std::string& outputPath);

}  // namespace profiling
}  // namespace vek
