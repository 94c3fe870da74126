// The public operation that confines a reader's object files to a directory.
#include "VekChrometraceProfilingReader.h"
#include "reader/VekProfileLogReader.h"
#include "stats/ObjectDirectory.h"

namespace vek {
namespace profiling {

bool confineObjectFiles(IVekProfileLogReader<VisibilityLevel>* reader,
                        const std::string& directory) {
    auto* ours = dynamic_cast<VekProfileLogReader*>(reader);
    if (ours == nullptr) return false;
    if (directory.empty()) {
        ours->objectDirectory.reset();
        return true;
    }
    std::unique_ptr<ObjectDirectory> confined = ObjectDirectory::open(directory);
    if (!confined) return false;
    ours->objectDirectory = std::move(confined);
    return true;
}

}  // namespace profiling
}  // namespace vek
