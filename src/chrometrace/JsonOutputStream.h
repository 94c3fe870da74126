// An output stream for RapidJSON's writers that hands the text to a standard
// stream in blocks: the writers put one character at a time, which a standard
// stream would serve one call at a time.
#pragma once

#include <cstddef>
#include <ostream>

namespace vek {
namespace profiling {

class JsonOutputStream {
public:
    using Ch = char;

    explicit JsonOutputStream(std::ostream& out) : out_(out) {}
    JsonOutputStream(const JsonOutputStream&) = delete;
    JsonOutputStream& operator=(const JsonOutputStream&) = delete;
    ~JsonOutputStream() { Flush(); }

    void Put(char c) {
        if (used_ == sizeof block_) Flush();
        block_[used_++] = c;
    }
    void Flush() {
        if (used_ > 0) out_.write(block_, static_cast<std::streamsize>(used_));
        used_ = 0;
    }

private:
    std::ostream& out_;
    size_t used_ = 0;
    char block_[64 * 1024];
};

}  // namespace profiling
}  // namespace vek
