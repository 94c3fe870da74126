#include "stats/ObjectDirectory.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace vek {
namespace profiling {
namespace {

constexpr int kCreateFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
constexpr mode_t kCreateMode = 0666;  // narrowed by the umask, as for any new file

bool hasDotDotComponent(const std::string& name) {
    for (size_t start = 0; start <= name.size();) {
        size_t end = name.find('/', start);
        if (end == std::string::npos) end = name.size();
        if (name.compare(start, end - start, "..") == 0) return true;
        start = end + 1;
    }
    return false;
}

// The canonical path of `path` (symbolic links resolved); empty when it
// does not resolve.
std::string resolved(const std::string& path) {
    char buffer[PATH_MAX];
    return ::realpath(path.c_str(), buffer) != nullptr ? std::string(buffer) : std::string();
}

}  // namespace

std::unique_ptr<ObjectDirectory> ObjectDirectory::open(const std::string& path,
                                                       Enforcement enforcement) {
    const int fd = ::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return nullptr;
    const std::string canonical = resolved(path);
    if (canonical.empty()) {
        ::close(fd);
        return nullptr;
    }
    return std::unique_ptr<ObjectDirectory>(new ObjectDirectory(fd, canonical, enforcement));
}

ObjectDirectory::ObjectDirectory(int fd, std::string resolvedPath, Enforcement enforcement)
    : fd_(fd), enforcement_(enforcement), resolvedPath_(std::move(resolvedPath)) {}

ObjectDirectory::~ObjectDirectory() { ::close(fd_); }

const char* ObjectDirectory::refusalOf(const std::string& name) {
    if (!name.empty() && name[0] == '/') return "is an absolute path";
    if (hasDotDotComponent(name)) return "has a \"..\" component";
    return nullptr;
}

bool ObjectDirectory::exists(const std::string& name) const {
    struct stat status {};
    return ::fstatat(fd_, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

int ObjectDirectory::create(const std::string& name) const {
    if (enforcement_ == Enforcement::kResolveOnly) return createByResolving(name);
    open_how how{};
    how.flags = kCreateFlags;
    how.mode = kCreateMode;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    const long fd = ::syscall(SYS_openat2, fd_, name.c_str(), &how, sizeof how);
    if (fd >= 0) return static_cast<int>(fd);
    // Kernels before 5.6, and sandboxes that filter the call, have no openat2.
    if (errno != ENOSYS && errno != EPERM) return -1;
    return createByResolving(name);
}

// Without openat2: the directory part of the name must resolve beneath the
// directory. A link swapped in between the check and the creation could
// still lead out; the command line adds a kernel sandbox for that.
int ObjectDirectory::createByResolving(const std::string& name) const {
    const size_t slash = name.find_last_of('/');
    const std::string parent =
        resolved(resolvedPath_ + "/" + (slash == std::string::npos ? "." : name.substr(0, slash)));
    const bool beneath = parent == resolvedPath_ ||
                         (parent.size() > resolvedPath_.size() &&
                          parent.compare(0, resolvedPath_.size(), resolvedPath_) == 0 &&
                          (resolvedPath_ == "/" || parent[resolvedPath_.size()] == '/'));
    if (parent.empty() || !beneath) {
        errno = parent.empty() ? ENOENT : EXDEV;
        return -1;
    }
    const std::string leaf = slash == std::string::npos ? name : name.substr(slash + 1);
    return ::open((parent + "/" + leaf).c_str(), kCreateFlags, kCreateMode);
}

}  // namespace profiling
}  // namespace vek
