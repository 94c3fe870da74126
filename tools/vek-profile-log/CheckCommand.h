// vek-profile-log check LOG: verifies every chunk of a log and prints one
// line per problem, then what the log holds.
#pragma once

#include <string>

namespace vek {
namespace profiling {

// Exit status: 0 when every chunk is whole and valid, 1 otherwise.
int runCheck(const std::string& logPath);

}  // namespace profiling
}  // namespace vek
