#include "WriteConfinement.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#ifndef LANDLOCK_ACCESS_FS_TRUNCATE
#define LANDLOCK_ACCESS_FS_TRUNCATE (1ULL << 14)
#endif

namespace vek {
namespace tools {
namespace {

// The accesses that change the file system; the ones a plain file can carry.
constexpr uint64_t kFileWrites = LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_TRUNCATE;

long landlock(long call, const void* attribute, size_t size, uint32_t flags) {
    return syscall(call, attribute, size, flags);
}

uint64_t handledWrites(long abi) {
    uint64_t access = LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_REMOVE_DIR |
                      LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_CHAR |
                      LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_MAKE_REG |
                      LANDLOCK_ACCESS_FS_MAKE_SOCK | LANDLOCK_ACCESS_FS_MAKE_FIFO |
                      LANDLOCK_ACCESS_FS_MAKE_BLOCK | LANDLOCK_ACCESS_FS_MAKE_SYM;
    if (abi >= 2) access |= LANDLOCK_ACCESS_FS_REFER;
    if (abi >= 3) access |= LANDLOCK_ACCESS_FS_TRUNCATE;
    return access;
}

// Adds a rule for `path` allowing `handled` (what a plain file can carry of
// it); false with `error` set when the kernel refuses it.
bool allow(int rulesetFd, const std::string& path, uint64_t handled, std::string& error) {
    landlock_path_beneath_attr beneath{};
    beneath.parent_fd = open(path.c_str(), O_PATH | O_CLOEXEC);
    if (beneath.parent_fd < 0) return true;  // not there: nothing to allow
    struct stat status {};
    const bool directory = fstat(beneath.parent_fd, &status) == 0 && S_ISDIR(status.st_mode);
    beneath.allowed_access = directory ? handled : handled & kFileWrites;
    const long added =
        syscall(SYS_landlock_add_rule, rulesetFd, LANDLOCK_RULE_PATH_BENEATH, &beneath, 0);
    close(beneath.parent_fd);
    if (added == 0) return true;
    error = "cannot allow writes to " + path + ": " + std::strerror(errno);
    return false;
}

}  // namespace

Confinement confineWritesTo(const std::vector<std::string>& paths, std::string& error,
                            const std::vector<std::string>& emptyDirectoriesRemovableFrom) {
    const long abi =
        landlock(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (abi < 1) return Confinement::kUnavailable;
    landlock_ruleset_attr ruleset{};
    ruleset.handled_access_fs = handledWrites(abi);
    const int rulesetFd =
        static_cast<int>(landlock(SYS_landlock_create_ruleset, &ruleset, sizeof ruleset, 0));
    if (rulesetFd < 0) return Confinement::kUnavailable;
    for (const std::string& path : paths) {
        if (!allow(rulesetFd, path, ruleset.handled_access_fs, error)) {
            close(rulesetFd);
            return Confinement::kFailed;
        }
    }
    for (const std::string& path : emptyDirectoriesRemovableFrom) {
        if (!allow(rulesetFd, path, LANDLOCK_ACCESS_FS_REMOVE_DIR, error)) {
            close(rulesetFd);
            return Confinement::kFailed;
        }
    }
    const bool restricted = prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
                            syscall(SYS_landlock_restrict_self, rulesetFd, 0) == 0;
    if (!restricted) error = std::string("cannot confine writes: ") + std::strerror(errno);
    close(rulesetFd);
    return restricted ? Confinement::kConfined : Confinement::kFailed;
}

}  // namespace tools
}  // namespace vek
