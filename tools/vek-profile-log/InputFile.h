// The input of a conversion: a file opened for binary reading, or standard
// input for "-". Closed with the object (standard input stays open).
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace vek {
namespace profiling {

class InputFile {
public:
    explicit InputFile(const std::string& path)
        : isStdin_(path == "-"), file_(isStdin_ ? stdin : std::fopen(path.c_str(), "rb")) {
        if (file_ == nullptr) error_ = std::string("cannot open for reading: ") + std::strerror(errno);
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

}  // namespace profiling
}  // namespace vek
