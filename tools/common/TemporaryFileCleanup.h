// Removes the temporary files of unfinished outputs when the program is
// stopped by SIGINT, SIGTERM or SIGHUP, then lets the signal end it as it
// would have. The handler only calls unlink, which is safe in a signal.
#pragma once

#include <string>

namespace vek {
namespace tools {

// Removed if a stopping signal arrives; false when every slot is taken (the
// file is then not removed on a signal, but still on every other failure).
bool watchTemporaryFile(const std::string& path);
void unwatchTemporaryFile(const std::string& path);

}  // namespace tools
}  // namespace vek
