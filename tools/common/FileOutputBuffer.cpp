#include "FileOutputBuffer.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace vek {
namespace tools {
namespace {

constexpr size_t kBlock = 256 * 1024;
// zlib's window bits plus 16: a gzip header and trailer, not zlib's.
constexpr int kGzipWindowBits = 15 + 16;
// gzip's own default level: most of the gain at a fraction of level 9's time.
constexpr int kLevel = 6;
// What zlib's 32-bit counts take at once.
constexpr size_t kMostAtOnce = size_t{1} << 30;

}  // namespace

FileOutputBuffer::FileOutputBuffer(int fd, bool gzip) : fd_(fd), gzip_(gzip), input_(kBlock) {
    if (gzip_) {
        output_.resize(kBlock);
        if (deflateInit2(&zstream_, kLevel, Z_DEFLATED, kGzipWindowBits, 8,
                         Z_DEFAULT_STRATEGY) != Z_OK) {
            error_ = "cannot start the gzip compressor";
        }
    }
    setp(input_.data(), input_.data() + input_.size());
}

FileOutputBuffer::~FileOutputBuffer() {
    if (gzip_) deflateEnd(&zstream_);
}

bool FileOutputBuffer::writeOut(const char* data, size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(fd_, data, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) {
            error_ = written < 0 ? std::strerror(errno) : "short write";
            return false;
        }
        data += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

bool FileOutputBuffer::deflateInput(const char* data, size_t size, int flush) {
    zstream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data));
    zstream_.avail_in = static_cast<uInt>(size);
    int result = Z_OK;
    do {
        zstream_.next_out = reinterpret_cast<Bytef*>(output_.data());
        zstream_.avail_out = static_cast<uInt>(output_.size());
        result = deflate(&zstream_, flush);
        if (result == Z_STREAM_ERROR) {
            error_ = "gzip compression failed";
            return false;
        }
        if (!writeOut(output_.data(), output_.size() - zstream_.avail_out)) return false;
    } while (zstream_.avail_out == 0 || (flush == Z_FINISH && result != Z_STREAM_END));
    return true;
}

bool FileOutputBuffer::pass(const char* data, size_t size) {
    if (!error_.empty()) return false;
    if (!gzip_) return writeOut(data, size);
    for (size_t done = 0; done < size; done += kMostAtOnce) {
        if (!deflateInput(data + done, std::min(kMostAtOnce, size - done), Z_NO_FLUSH)) {
            return false;
        }
    }
    return true;
}

int FileOutputBuffer::sync() {
    const bool ok = pass(pbase(), static_cast<size_t>(pptr() - pbase()));
    setp(input_.data(), input_.data() + input_.size());
    return ok ? 0 : -1;
}

FileOutputBuffer::int_type FileOutputBuffer::overflow(int_type c) {
    if (sync() != 0) return traits_type::eof();
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
        *pptr() = traits_type::to_char_type(c);
        pbump(1);
    }
    return traits_type::not_eof(c);
}

std::streamsize FileOutputBuffer::xsputn(const char* data, std::streamsize count) {
    // Large pieces go on directly rather than through the buffer.
    if (static_cast<size_t>(count) >= input_.size()) {
        if (sync() != 0 || !pass(data, static_cast<size_t>(count))) return 0;
        return count;
    }
    return std::streambuf::xsputn(data, count);
}

bool FileOutputBuffer::finish(std::string& error) {
    if (!finished_) {
        finished_ = true;
        if (sync() == 0 && gzip_) deflateInput(nullptr, 0, Z_FINISH);
    }
    error = error_;
    return error_.empty();
}

}  // namespace tools
}  // namespace vek
