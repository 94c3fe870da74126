// Bytes held in memory, read through a C stream as a file would be.
#pragma once

#include <cstdio>
#include <stdexcept>
#include <string>

namespace vek::profiling::testlog {

class MemoryFile {
public:
    // fmemopen refuses a null buffer; an empty string still has one.
    explicit MemoryFile(std::string bytes)
        : bytes_(std::move(bytes)), file_(fmemopen(bytes_.data(), bytes_.size(), "r")) {
        if (file_ == nullptr) throw std::runtime_error("fmemopen failed");
    }
    ~MemoryFile() { std::fclose(file_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    std::FILE* get() const { return file_; }

private:
    std::string bytes_;
    std::FILE* file_;
};

}  // namespace vek::profiling::testlog
