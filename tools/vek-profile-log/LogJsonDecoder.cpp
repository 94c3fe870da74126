#include "LogJsonDecoder.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "LogJsonSchema.h"
#include "log/FlatBufferReaderUtil.h"

namespace vek {
namespace profiling {
namespace {

constexpr size_t kLengthFieldSize = 4;
// The verifier refuses larger chunks, so there is no point reading them.
constexpr uint32_t kMaximumChunkSize = 0x7fffffff;

template <typename Value, typename Bits>
std::string exactText(Bits bits) {
    Value value;
    std::memcpy(&value, &bits, sizeof value);
    if (std::isnan(value)) return "\"NaN\"";
    if (std::isinf(value)) return value > 0 ? "\"Infinity\"" : "\"-Infinity\"";
    char text[32];
    std::string result(text, std::to_chars(text, text + sizeof text, value).ptr);
    if (result.find_first_of(".e") == std::string::npos) result += ".0";  // as the generator does
    return result;
}

// Writes chunks with GenerateText. The generator writes floats with six
// decimals and doubles with twelve in fixed notation (1e-20 becomes 0.0), so
// its schema has them retyped as unsigned integers of the same width: their
// bits come out, and are replaced by the shortest decimal that reads back to
// them. Not-a-number and the infinities, for which JSON has no number,
// become the strings "NaN", "Infinity" and "-Infinity", which the parser
// reads back.
class ChunkTextWriter {
public:
    ChunkTextWriter() : parser_(loadLogSchema()) {
        for (flatbuffers::StructDef* table : parser_->structs_.vec) {
            for (flatbuffers::FieldDef* field : table->fields.vec) {
                flatbuffers::BaseType& type = field->value.type.base_type;
                if (type != flatbuffers::BASE_TYPE_FLOAT && type != flatbuffers::BASE_TYPE_DOUBLE)
                    continue;
                floatFields_[field->name] = type;
                field->value.constant = "0";  // the default, read as the new type
                type = type == flatbuffers::BASE_TYPE_FLOAT ? flatbuffers::BASE_TYPE_UINT
                                                            : flatbuffers::BASE_TYPE_ULONG;
            }
        }
    }

    // Writes a verified chunk as a JSON object, every line after the first
    // preceded by `indent`. False when the generator fails; `scratch` is
    // reused from chunk to chunk.
    bool write(const uint8_t* chunk, std::string_view indent, std::string& scratch,
               std::ostream& out) const {
        scratch.clear();
        if (!flatbuffers::GenerateText(*parser_, chunk, &scratch)) return false;
        const std::string_view text(scratch.data(), scratch.find_last_not_of('\n') + 1);
        for (size_t start = 0; start <= text.size();) {
            const size_t end = std::min(text.find('\n', start), text.size());
            const std::string_view line = text.substr(start, end - start);
            if (start > 0) out << '\n' << (line.empty() ? "" : indent);
            start = end + 1;
            // A field's line: blanks, "name": value. A string value cannot
            // pass for one, its quotes are escaped.
            const size_t key = line.find('"') + 1;
            const size_t value = line.find("\": ") + 3;
            const auto field = key > 0 && value > key + 2
                                   ? floatFields_.find(line.substr(key, value - 3 - key))
                                   : floatFields_.end();
            if (field == floatFields_.end()) {
                out << line;
                continue;
            }
            const bool comma = line.back() == ',';
            uint64_t bits = 0;
            std::from_chars(line.data() + value, line.data() + line.size() - comma, bits);
            out << line.substr(0, value)
                << (field->second == flatbuffers::BASE_TYPE_FLOAT
                        ? exactText<float>(static_cast<uint32_t>(bits))
                        : exactText<double>(bits))
                << (comma ? "," : "");
        }
        return true;
    }

private:
    std::unique_ptr<flatbuffers::Parser> parser_;
    std::map<std::string, flatbuffers::BaseType, std::less<>> floatFields_;  // by name
};

// Reads up to `size` bytes. The buffer grows only with the bytes that
// arrive, so a corrupt length field cannot make us allocate gigabytes.
size_t readChunk(std::FILE* log, size_t size, std::vector<uint8_t>& chunk) {
    uint8_t block[64 * 1024];
    chunk.clear();
    while (chunk.size() < size) {
        const size_t wanted = std::min(size - chunk.size(), sizeof block);
        const size_t got = std::fread(block, 1, wanted, log);
        chunk.insert(chunk.end(), block, block + got);
        if (got < wanted) break;
    }
    return chunk.size();
}

}  // namespace

ConversionStatus decodeLog(std::FILE* log, std::ostream& json) {
    ConversionStatus status;
    static const ChunkTextWriter writer;  // loading the schema costs more than a small log
    std::vector<uint8_t> chunk;
    std::string scratch;
    uint64_t offset = 0;
    constexpr char kStart[] = "{\n    \"chunks\": [";  // written with the first chunk
    for (;; ++status.chunkCount) {
        uint8_t field[kLengthFieldSize];
        const size_t got = std::fread(field, 1, sizeof field, log);
        if (got < sizeof field) {
            // The reader stops quietly at a cut-short length field; so do we, but say so.
            if (got > 0 && !std::ferror(log)) {
                status.warning = "ignored " + std::to_string(got) +
                                 " trailing byte(s) at byte offset " + std::to_string(offset) +
                                 ", too few for a chunk length";
            }
            break;
        }
        const uint32_t length =
            static_cast<uint32_t>(field[0]) | static_cast<uint32_t>(field[1]) << 8 |
            static_cast<uint32_t>(field[2]) << 16 | static_cast<uint32_t>(field[3]) << 24;
        const std::string place = "chunk " + std::to_string(status.chunkCount) +
                                  " at byte offset " + std::to_string(offset) + ": ";
        if (length >= kMaximumChunkSize) {
            status.error = place + "corrupt chunk: length " + std::to_string(length) +
                           " is beyond the largest chunk the reader accepts";
            return status;
        }
        const size_t have = readChunk(log, length, chunk);
        if (have < length && std::ferror(log)) break;
        if (have < length) {
            status.error = place + "truncated chunk: its length field announces " +
                           std::to_string(length) + " bytes, but only " + std::to_string(have) +
                           " follow";
            return status;
        }
        if (!FlatBufferReaderUtil::verifyChunk(chunk.data(), chunk.size())) {
            status.error = place + "corrupt chunk of " + std::to_string(length) +
                           " bytes: it fails the log verifier";
            return status;
        }
        json << (status.chunkCount > 0 ? "," : kStart) << "\n        ";
        if (!writer.write(chunk.data(), "        ", scratch, json)) {
            status.error = place + "the text generator refuses the chunk";
            return status;
        }
        offset += kLengthFieldSize + length;
    }
    if (std::ferror(log)) {
        status.error = std::string("cannot read: ") + std::strerror(errno);
        return status;
    }
    json << (status.chunkCount > 0 ? "" : kStart) << "\n    ]\n}\n";
    return status;
}

}  // namespace profiling
}  // namespace vek
