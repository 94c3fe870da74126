// A directory that object files are confined to. Names are taken relative to
// it; a name that is absolute, has a ".." component or resolves (through a
// symbolic link) outside it is refused. The kernel enforces the confinement
// where it offers openat2 with RESOLVE_BENEATH; elsewhere the directory part
// of the name is resolved and compared first.
#pragma once

#include <memory>
#include <string>

namespace vek {
namespace profiling {

class ObjectDirectory {
public:
    enum class Enforcement {
        kKernelFirst,  // openat2 where the kernel has it, else resolving first
        kResolveOnly,  // resolving first, always
    };

    // Null when `path` is not a directory that can be opened.
    static std::unique_ptr<ObjectDirectory> open(
        const std::string& path, Enforcement enforcement = Enforcement::kKernelFirst);
    ~ObjectDirectory();
    ObjectDirectory(const ObjectDirectory&) = delete;
    ObjectDirectory& operator=(const ObjectDirectory&) = delete;

    // Why `name` is refused before any file system access ("is an absolute
    // path", ...); null when it may be tried.
    static const char* refusalOf(const std::string& name);
    // True when something, even a dangling symbolic link, has that name.
    bool exists(const std::string& name) const;
    // Creates the file `name` for writing: never through a symbolic link in
    // its last component, never over an existing file, never outside the
    // directory. The descriptor, or -1 with errno set (EXDEV: outside).
    int create(const std::string& name) const;

private:
    ObjectDirectory(int fd, std::string resolvedPath, Enforcement enforcement);
    int createByResolving(const std::string& name) const;

    int fd_;
    Enforcement enforcement_;
    std::string resolvedPath_;
};

}  // namespace profiling
}  // namespace vek
