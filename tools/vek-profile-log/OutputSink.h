// Buffered output to a file, standard output or a string, usable as a
// RapidJSON output stream. Every write and the final close are checked: a
// failed or short write marks the sink failed and keeps the reason, so that a
// cut-off file is never reported as written.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace vek {
namespace profiling {

class OutputSink {
public:
    using Ch = char;  // RapidJSON output stream

    // Appends everything to `target`.
    explicit OutputSink(std::string& target);
    ~OutputSink();
    OutputSink(const OutputSink&) = delete;
    OutputSink& operator=(const OutputSink&) = delete;

    // Creates or truncates `path` ("-" is standard output). Null with `error`
    // set when the file cannot be opened.
    static std::unique_ptr<OutputSink> openFile(const std::string& path, std::string& error);

    void Put(char c) {
        if (used_ == kBufferSize) drain();
        buffer_[used_++] = c;
    }
    // RapidJSON flushes after each complete document; the data is written by
    // finish(), so there is nothing to do here.
    void Flush() {}

    void write(const void* data, size_t size);

    // Writes what is buffered and closes the file. False when any write or
    // the close failed; error() then says why.
    bool finish();
    // Gives up on the output: closes it and removes a regular file that this
    // sink created or truncated, so no partial file is left behind.
    void discard();

    bool failed() const { return failed_; }
    const std::string& error() const { return error_; }

private:
    static constexpr size_t kBufferSize = 64 * 1024;

    OutputSink(int fd, bool ownsFd, bool isRegularFile, std::string path);
    void drain();
    void writeToFd(const char* data, size_t size);
    void fail(const std::string& reason);

    std::string* target_ = nullptr;  // string mode
    int fd_ = -1;                    // file mode
    bool ownsFd_ = false;
    bool isRegularFile_ = false;
    std::string path_;
    std::unique_ptr<char[]> buffer_;
    size_t used_ = 0;
    bool failed_ = false;
    std::string error_;
};

}  // namespace profiling
}  // namespace vek
