#include "LogJson.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "LogJsonSchema.h"
#include "log/ChunkInput.h"

namespace vek {
namespace profiling {
namespace {

// A chunk's JSON never encodes to more than three times its size, so this
// keeps every chunk below the 2 GB that FlatBuffers can build.
constexpr size_t kMaximumChunkText = size_t{512} << 20;

// Reads the framing, {"chunks": [CHUNK, ...]}, and hands out the text of one
// chunk object at a time. Within a chunk only strings and brackets are
// followed, to find where it ends; the rest is the parser's.
class ChunkTextReader {
public:
    explicit ChunkTextReader(std::FILE* in) : in_(in) {}

    // The next chunk object into `text`; false after the last one or on an
    // error, which error() then describes.
    bool next(std::string& text) {
        if (!error_.empty() || finished_) return false;
        if (chunkLine_ == 0 && !(token() == '{' && token() == '"' && readKey() &&
                                 token() == ':' && token() == '[')) {
            return fail("expected {\"chunks\": [ at the start");
        }
        int c = token();
        if (c == ']') {
            finished_ = true;
            return token() == '}' && token() == EOF ? false
                                                    : fail("expected the JSON to end with ]}");
        }
        if (chunkLine_ > 0 && c != ',') return fail("expected , or ] after a chunk");
        if (chunkLine_ > 0) c = token();
        if (c != '{') return fail("expected a chunk object");
        chunkLine_ = line_;
        chunkColumn_ = column_ - 1;
        return readChunkRest(text);
    }
    const std::string& error() const { return error_; }
    // Where the last chunk's '{' is: line from 1, column from 0.
    int chunkLine() const { return chunkLine_; }
    long chunkColumn() const { return chunkColumn_; }

private:
    int get() {  // the next character, counting lines and columns
        const int c = getc_unlocked(in_);
        column_ = c == '\n' ? 0 : column_ + (c != EOF);
        line_ += c == '\n';
        return c;
    }
    int token() {  // the next character that is not a blank
        int c = get();
        while (c == ' ' || c == '\n' || c == '\t' || c == '\r') c = get();
        return c;
    }
    bool readKey() {  // after its opening quote
        for (const char* key = "chunks\""; *key != '\0'; ++key) {
            if (get() != *key) return false;
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
    int line_ = 1;
    long column_ = 0;
    int chunkLine_ = 0;  // 0 before the first chunk
    long chunkColumn_ = 0;
    bool finished_ = false;
    std::string error_;
};

// Reads up to the '}' that closes the chunk's '{'.
bool ChunkTextReader::readChunkRest(std::string& text) {
    text.assign(1, '{');
    bool inString = false;
    bool escaped = false;
    for (int depth = 1; depth > 0;) {
        const int c = get();
        if (c == EOF) return fail("the JSON ends inside a chunk object");
        if (c == '\0') return fail("a NUL byte is not JSON");  // and would end the parser's text
        if (text.size() == kMaximumChunkText) return fail("a chunk object longer than 512 MiB");
        text += static_cast<char>(c);
        if (inString) {
            inString = escaped || c != '"';
            escaped = !escaped && c == '\\';
        } else if (c == '/') {
            return fail("comments are not JSON");  // and could hide a bracket
        } else {
            inString = c == '"';
            depth += (c == '{' || c == '[') - (c == '}' || c == ']');
        }
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
        writeChunk(log, data, size);
    }
    status.error =
        std::ferror(json) ? std::string("cannot read: ") + std::strerror(errno) : reader.error();
    return status;
}

}  // namespace profiling
}  // namespace vek
