#include "OutputSink.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace vek {
namespace profiling {

OutputSink::OutputSink(std::string& target)
    : target_(&target), buffer_(new char[kBufferSize]) {}

OutputSink::OutputSink(int fd, bool ownsFd, bool isRegularFile, std::string path)
    : fd_(fd),
      ownsFd_(ownsFd),
      isRegularFile_(isRegularFile),
      path_(std::move(path)),
      buffer_(new char[kBufferSize]) {}

OutputSink::~OutputSink() {
    if (ownsFd_ && fd_ >= 0) ::close(fd_);
}

std::unique_ptr<OutputSink> OutputSink::openFile(const std::string& path, std::string& error) {
    if (path == "-") {
        return std::unique_ptr<OutputSink>(new OutputSink(STDOUT_FILENO, false, false, "-"));
    }
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) {
        error = "cannot open " + path + " for writing: " + std::strerror(errno);
        return nullptr;
    }
    struct stat info {};
    const bool isRegular = ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
    return std::unique_ptr<OutputSink>(new OutputSink(fd, true, isRegular, path));
}

void OutputSink::write(const void* data, size_t size) {
    const char* bytes = static_cast<const char*>(data);
    if (size >= kBufferSize - used_) {
        drain();
        if (size >= kBufferSize) {
            if (target_ != nullptr) {
                target_->append(bytes, size);
            } else if (!failed_) {
                writeToFd(bytes, size);
            }
            return;
        }
    }
    std::memcpy(buffer_.get() + used_, bytes, size);
    used_ += size;
}

void OutputSink::drain() {
    if (used_ == 0) return;
    if (target_ != nullptr) {
        target_->append(buffer_.get(), used_);
    } else if (!failed_) {
        writeToFd(buffer_.get(), used_);
    }
    used_ = 0;
}

void OutputSink::writeToFd(const char* data, size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(fd_, data, size);
        if (written < 0) {
            if (errno == EINTR) continue;
            fail(std::strerror(errno));
            return;
        }
        if (written == 0) {
            fail("short write");
            return;
        }
        data += written;
        size -= static_cast<size_t>(written);
    }
}

void OutputSink::fail(const std::string& reason) {
    if (failed_) return;
    failed_ = true;
    error_ = "cannot write " + (path_ == "-" ? std::string("standard output") : path_) + ": " +
             reason;
}

bool OutputSink::finish() {
    drain();
    if (ownsFd_ && fd_ >= 0) {
        if (::close(fd_) != 0) fail(std::strerror(errno));
        fd_ = -1;
    }
    return !failed_;
}

void OutputSink::discard() {
    used_ = 0;
    if (ownsFd_ && fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
    if (isRegularFile_) {
        ::unlink(path_.c_str());
        isRegularFile_ = false;
    }
}

}  // namespace profiling
}  // namespace vek
