// The input of a command: a file opened for binary reading, or standard
// input for "-". Closed with the object (standard input stays open).
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "LogRefusal.h"

namespace vek {
namespace profiling {

class InputFile {
public:
    explicit InputFile(const std::string& path)
        : isStdin_(path == "-"), file_(isStdin_ ? stdin : std::fopen(path.c_str(), "rb")) {
        if (file_ == nullptr) {
            error_ = std::string("cannot open for reading: ") + std::strerror(errno);
        }
    }
    ~InputFile() {
        if (file_ != nullptr && !isStdin_) std::fclose(file_);
    }
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    // Null when the file could not be opened; error() then says why.
    std::FILE* get() const { return file_; }
    const std::string& error() const { return error_; }

private:
    bool isStdin_;
    std::FILE* file_;
    std::string error_;
};

// The file at `path`, or null after saying on standard error why it cannot
// be read. A log is first refused, with a line of its own each, when it is
// missing, a directory or (unless accepted) empty.
inline std::unique_ptr<InputFile> openInput(const std::string& path, bool isLog,
                                            bool acceptEmpty = false) {
    const std::string refusal =
        isLog && path != "-" ? tools::logFileRefusal(path, acceptEmpty) : std::string();
    auto input = refusal.empty() ? std::make_unique<InputFile>(path) : nullptr;
    if (input && input->get() != nullptr) return input;
    std::fprintf(stderr, "vek-profile-log: %s: %s\n", path.c_str(),
                 refusal.empty() ? input->error().c_str() : refusal.c_str());
    return nullptr;
}

}  // namespace profiling
}  // namespace vek
