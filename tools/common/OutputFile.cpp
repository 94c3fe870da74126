#include "OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include "FileOutputBuffer.h"
#include "TemporaryFileCleanup.h"

namespace vek {
namespace tools {
namespace {

std::string lastError() { return std::strerror(errno); }

bool endsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// Files are created as the standard streams create them: 0666 less the umask.
mode_t newFileMode() {
    static const mode_t mode = [] {
        const mode_t mask = umask(0);
        umask(mask);
        return static_cast<mode_t>(0666 & ~mask);
    }();
    return mode;
}

std::string directoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string fileNameOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool copyContents(const std::string& from, int toFd, std::string& error) {
    const int fromFd = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
    if (fromFd < 0) {
        error = lastError();
        return false;
    }
    char block[64 * 1024];
    bool ok = true;
    for (;;) {
        const ssize_t got = ::read(fromFd, block, sizeof block);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            ok = got == 0;
            if (!ok) error = lastError();
            break;
        }
        for (ssize_t done = 0; done < got;) {
            const ssize_t put = ::write(toFd, block + done, static_cast<size_t>(got - done));
            if (put < 0 && errno == EINTR) continue;
            if (put <= 0) {
                error = put < 0 ? lastError() : "short write";
                ::close(fromFd);
                return false;
            }
            done += put;
        }
    }
    ::close(fromFd);
    return ok;
}

}  // namespace

struct OutputFile::State {
    std::string target;
    std::string temporary;  // empty: written directly
    bool toStandardOutput = false;
    bool committed = false;
    int fd = -1;
    std::unique_ptr<FileOutputBuffer> buffer;
    std::unique_ptr<std::ostream> stream;

    void discard() {
        if (fd >= 0) ::close(fd);
        fd = -1;
        if (!temporary.empty()) {
            ::unlink(temporary.c_str());
            unwatchTemporaryFile(temporary);
        }
    }
};

bool OutputFile::isCompressedName(const std::string& path) { return endsWith(path, ".gz"); }

std::unique_ptr<OutputFile> OutputFile::open(const std::string& path, Mode mode,
                                             std::string& error) {
    auto state = std::make_unique<State>();
    state->target = path;
    if (path == "-") {
        state->toStandardOutput = true;
        return std::unique_ptr<OutputFile>(new OutputFile(std::move(state)));
    }

    struct stat existing {};
    const bool exists = ::stat(path.c_str(), &existing) == 0;
    if (exists && S_ISDIR(existing.st_mode)) {
        error = "Is a directory";
        return nullptr;
    }
    // A read-only file stays read-only: it is not replaced behind its back.
    if (exists && ::access(path.c_str(), W_OK) != 0) {
        error = lastError();
        return nullptr;
    }
    if (exists && !S_ISREG(existing.st_mode)) {
        // A device or a FIFO cannot be replaced: it is written as it is.
        const int flags = O_WRONLY | O_CLOEXEC | (mode == Mode::kAppend ? O_APPEND : O_TRUNC);
        state->fd = ::open(path.c_str(), flags);
        if (state->fd < 0) {
            error = lastError();
            return nullptr;
        }
    } else {
        std::string pattern = directoryOf(path) + "/." + fileNameOf(path) + ".XXXXXX";
        state->fd = ::mkostemp(pattern.data(), O_CLOEXEC);
        if (state->fd < 0) {
            error = lastError();
            return nullptr;
        }
        state->temporary = pattern;
        watchTemporaryFile(state->temporary);
        ::fchmod(state->fd, exists ? (existing.st_mode & 07777) : newFileMode());
        // Appending goes on after a copy of the earlier file.
        if (mode == Mode::kAppend && exists && !copyContents(path, state->fd, error)) {
            state->discard();
            return nullptr;
        }
    }
    state->buffer = std::make_unique<FileOutputBuffer>(state->fd, isCompressedName(path));
    state->stream = std::make_unique<std::ostream>(state->buffer.get());
    return std::unique_ptr<OutputFile>(new OutputFile(std::move(state)));
}

OutputFile::OutputFile(std::unique_ptr<State> state) : state_(std::move(state)) {}

OutputFile::~OutputFile() {
    if (!state_->committed) state_->discard();
}

std::ostream& OutputFile::stream() {
    return state_->toStandardOutput ? std::cout : *state_->stream;
}

bool OutputFile::commit(std::string& error) {
    State& state = *state_;
    if (state.toStandardOutput) {
        std::cout.flush();
        if (!std::cout.good()) error = "write error";
        return std::cout.good();
    }
    state.stream->flush();
    bool ok = state.buffer->finish(error);
    if (::close(state.fd) != 0 && ok) {
        error = lastError();
        ok = false;
    }
    state.fd = -1;
    if (ok && !state.temporary.empty() &&
        ::rename(state.temporary.c_str(), state.target.c_str()) != 0) {
        error = lastError();
        ok = false;
    }
    if (!ok) {
        if (error.empty()) error = "write error";
        state.discard();
        return false;
    }
    if (!state.temporary.empty()) unwatchTemporaryFile(state.temporary);
    state.committed = true;
    return true;
}

}  // namespace tools
}  // namespace vek
