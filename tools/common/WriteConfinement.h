// Confines the writes of this process, and of every process it starts, to
// chosen directories and files, with the kernel's Landlock. Reading stays
// unrestricted; files already open stay writable.
#pragma once

#include <string>
#include <vector>

namespace vek {
namespace tools {

enum class Confinement {
    kConfined,     // from now on only beneath `paths` can anything be written
    kUnavailable,  // the kernel has no Landlock: nothing changed
    kFailed,       // a rule could not be made (`error` says why): nothing changed
};

// Allows writing, creating, renaming and removing beneath each directory of
// `paths`, and writing to each other file of it. Paths that do not exist are
// left out. Beneath each directory of `emptyDirectoriesRemovableFrom` only
// empty directories can be removed (a scratch directory, at the end).
Confinement confineWritesTo(const std::vector<std::string>& paths, std::string& error,
                            const std::vector<std::string>& emptyDirectoriesRemovableFrom = {});

}  // namespace tools
}  // namespace vek
