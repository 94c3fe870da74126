#include "LogJsonEncoder.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "LogJsonSchema.h"
#include "log/FlatBufferReaderUtil.h"

namespace vek {
namespace profiling {
namespace {

// A chunk's JSON never encodes to more than three times its size, so this
// keeps every chunk below the 2 GB that FlatBuffers can build.
constexpr size_t kMaximumChunkText = size_t{512} << 20;

bool isBlank(int c) { return c == ' ' || c == '\n' || c == '\t' || c == '\r'; }

// The characters that open or close a string, an object or an array, and
// those that are never JSON outside a string (/) or anywhere (NUL).
bool isFramingCharacter(char c) {
    static const auto table = [] {
        std::array<bool, 256> framing{};
        for (const unsigned char special : {'"', '\\', '{', '}', '[', ']', '/', '\0'})
            framing[special] = true;
        return framing;
    }();
    return table[static_cast<unsigned char>(c)];
}

// Reads the framing, {"chunks": [CHUNK, ...]}, a buffer at a time, and hands
// out the text of one chunk object at a time. Within a chunk only strings
// and brackets are followed, to find where it ends; the rest is the parser's.
class ChunkTextReader {
public:
    explicit ChunkTextReader(std::FILE* in) : in_(in), buffer_(new char[kBufferSize]) {}

    // The next chunk object into `text`; false after the last one or on an
    // error, which error() then describes.
    bool next(std::string& text) {
        if (!error_.empty() || finished_) return false;
        if (chunkLine_ == 0 && !(nextToken() == '{' && nextToken() == '"' && readKey() &&
                                 nextToken() == ':' && nextToken() == '[')) {
            return fail("expected {\"chunks\": [ at the start");
        }
        int c = nextToken();
        if (c == ']') {
            finished_ = true;
            return nextToken() == '}' && nextToken() == EOF
                       ? false
                       : fail("expected the JSON to end with ]}");
        }
        if (chunkLine_ > 0 && c != ',') return fail("expected , or ] after a chunk");
        if (chunkLine_ > 0) c = nextToken();
        if (c != '{') return fail("expected a chunk object");
        chunkLine_ = line_;
        chunkColumn_ = column_ - 1;
        text.assign(1, '{');
        return readChunkRest(text);
    }
    const std::string& error() const { return error_; }
    // Where the last chunk's '{' is: line from 1, column from 0.
    int chunkLine() const { return chunkLine_; }
    long chunkColumn() const { return chunkColumn_; }

private:
    // Moves past the characters up to `to`, counting lines and columns.
    void advance(const char* to) {
        const char* lineStart = next_;
        while (const void* end =
                   std::memchr(lineStart, '\n', static_cast<size_t>(to - lineStart))) {
            ++line_;
            column_ = 0;
            lineStart = static_cast<const char*>(end) + 1;
        }
        column_ += to - lineStart;
        next_ = to;
    }
    bool available() {
        if (next_ == end_) {
            next_ = buffer_.get();
            end_ = next_ + std::fread(buffer_.get(), 1, kBufferSize, in_);
        }
        return next_ != end_;
    }
    int nextToken() {
        while (available() && isBlank(*next_)) advance(next_ + 1);
        if (!available()) return EOF;
        advance(next_ + 1);
        return static_cast<unsigned char>(next_[-1]);
    }
    bool readKey() {  // after its opening quote
        for (const char* key = "chunks\""; *key != '\0'; ++key) {
            if (!available() || *next_ != *key) return false;
            advance(next_ + 1);
        }
        return true;
    }
    bool readChunkRest(std::string& text);
    bool fail(const std::string& problem) {
        error_ = "line " + std::to_string(line_) + ", column " + std::to_string(column_) + ": " +
                 problem;
        return false;
    }

    std::FILE* in_;
    static constexpr size_t kBufferSize = 64 * 1024;
    std::unique_ptr<char[]> buffer_;
    const char* next_ = nullptr;
    const char* end_ = nullptr;
    int line_ = 1;
    long column_ = 0;
    int chunkLine_ = 0;  // 0 before the first chunk
    long chunkColumn_ = 0;
    bool finished_ = false;
    std::string error_;
};

// Reads up to the '}' that closes the chunk's '{'.
bool ChunkTextReader::readChunkRest(std::string& text) {
    int depth = 1;
    bool inString = false;
    bool escaped = false;
    while (depth > 0) {
        if (!available()) return fail("the JSON ends inside a chunk object");
        const char* c = next_;
        for (; c != end_ && depth > 0; ++c) {
            if (*c == '\0') {
                advance(c + 1);
                return fail("a NUL byte is not JSON");  // and would end the parser's text
            } else if (escaped) {
                escaped = false;
            } else if (!isFramingCharacter(*c)) {
                continue;
            } else if (inString) {
                escaped = *c == '\\';
                inString = *c != '"';
            } else if (*c == '/') {
                advance(c + 1);
                return fail("comments are not JSON");  // and could hide a bracket
            } else {
                inString = *c == '"';
                depth += *c == '{' || *c == '[' ? 1 : *c == '}' || *c == ']' ? -1 : 0;
            }
        }
        text.append(next_, c);
        advance(c);
        if (text.size() > kMaximumChunkText) return fail("a chunk object longer than 512 MiB");
    }
    return true;
}

// The parser's message is "LINE: COLUMN: error: REASON", within the chunk's
// text; this puts the place in the whole JSON.
std::string parseError(const std::string& message, const ChunkTextReader& reader, size_t chunk) {
    const std::string last = message.substr(message.rfind('\n') + 1);  // after any warnings
    int line = 1;
    long column = 0;
    int reason = 0;
    std::sscanf(last.c_str(), "%d: %ld: error: %n", &line, &column, &reason);
    return "chunk " + std::to_string(chunk) + ", line " +
           std::to_string(reader.chunkLine() + line - 1) + ", column " +
           std::to_string(line == 1 ? reader.chunkColumn() + column : column) + ": " +
           last.substr(static_cast<size_t>(reason));
}

}  // namespace

ConversionStatus encodeJson(std::FILE* json, std::ostream& log) {
    ConversionStatus status;
    // Loading the schema costs more than a small log. A parser that stopped
    // at an error may keep some of its state, so it is not used again.
    thread_local std::unique_ptr<flatbuffers::Parser> parser;
    ChunkTextReader reader(json);
    std::string text;
    for (; reader.next(text); ++status.chunkCount) {
        if (!parser) parser = loadLogSchema();
        parser->builder_.Clear();
        parser->error_.clear();  // warnings would pile up
        if (!parser->ParseJson(text.c_str())) {
            status.error = parseError(parser->error_, reader, status.chunkCount);
            parser.reset();
            return status;
        }
        const uint8_t* data = parser->builder_.GetBufferPointer();
        const uint32_t size = parser->builder_.GetSize();
        if (!FlatBufferReaderUtil::verifyChunk(data, size)) {
            status.error = "chunk " + std::to_string(status.chunkCount) +
                           ": the encoded chunk fails the log verifier";
            return status;
        }
        const char length[4] = {static_cast<char>(size), static_cast<char>(size >> 8),
                                static_cast<char>(size >> 16), static_cast<char>(size >> 24)};
        log.write(length, sizeof length).write(reinterpret_cast<const char*>(data), size);
    }
    status.error =
        std::ferror(json) ? std::string("cannot read: ") + std::strerror(errno) : reader.error();
    return status;
}

}  // namespace profiling
}  // namespace vek
