// A stream buffer over a file descriptor that writes what it is given as it
// goes, plain or deflated into one gzip member: a large output is never held
// whole in memory, compressed or not. The first failure is kept with its
// cause ("No space left on device", "File too large").
#pragma once

#include <zlib.h>

#include <streambuf>
#include <string>
#include <vector>

namespace vek {
namespace tools {

class FileOutputBuffer : public std::streambuf {
public:
    // Writes to `fd`, which stays open and owned by the caller.
    FileOutputBuffer(int fd, bool gzip);
    ~FileOutputBuffer() override;
    FileOutputBuffer(const FileOutputBuffer&) = delete;
    FileOutputBuffer& operator=(const FileOutputBuffer&) = delete;

    // Writes what is buffered and, for gzip, ends the member (its trailer
    // holds the length and checksum). False with `error` set when anything
    // failed on the way.
    bool finish(std::string& error);

protected:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char* data, std::streamsize count) override;
    // Hands what is buffered on; for gzip it does not end a deflate block,
    // so the per-line flushes of a report cost nothing in size.
    int sync() override;

private:
    bool pass(const char* data, size_t size);
    bool deflateInput(const char* data, size_t size, int flush);
    bool writeOut(const char* data, size_t size);

    int fd_;
    bool gzip_;
    z_stream zstream_{};
    bool finished_ = false;
    std::string error_;
    std::vector<char> input_;
    std::vector<char> output_;
};

}  // namespace tools
}  // namespace vek
