#include "LogJsonDecoder.h"

#include <rapidjson/prettywriter.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "InputFile.h"
#include "JsonLogFormat.h"
#include "JsonNumberText.h"
#include "log/FlatBufferReaderUtil.h"

namespace vek {
namespace profiling {
namespace {

using logjson::FieldFormat;
using logjson::FieldType;
using logjson::TableFormat;
using logjson::TableType;
using Writer = rapidjson::PrettyWriter<OutputSink>;
using TableList = flatbuffers::Vector<flatbuffers::Offset<flatbuffers::Table>>;

constexpr size_t kLengthFieldSize = 4;
// The verifier refuses larger chunks, so there is no point reading them.
constexpr uint32_t kMaximumChunkSize = 0x7fffffff;
// A chunk's buffer grows by at most this much ahead of the bytes actually
// read, so a corrupt length field cannot make us allocate gigabytes.
constexpr size_t kReadStep = 64u << 20;

// Where the chunks come from: a file or a block of memory.
class ByteSource {
public:
    virtual ~ByteSource() = default;
    // Reads up to `size` bytes; fewer only at the end of the input.
    virtual size_t read(uint8_t* into, size_t size) = 0;
    // Set when reading failed for another reason than the end of the input.
    virtual std::string readError() const { return {}; }
    // How many bytes are left, when the source knows.
    virtual size_t available() const { return SIZE_MAX; }
};

class MemorySource : public ByteSource {
public:
    MemorySource(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    size_t read(uint8_t* into, size_t size) override {
        const size_t count = size < size_ - position_ ? size : size_ - position_;
        if (count > 0) std::memcpy(into, data_ + position_, count);
        position_ += count;
        return count;
    }
    size_t available() const override { return size_ - position_; }

private:
    const uint8_t* data_;
    size_t size_;
    size_t position_ = 0;
};

class FileSource : public ByteSource {
public:
    explicit FileSource(std::FILE* file) : file_(file) {
        struct stat status {};
        const long position = std::ftell(file);
        if (fstat(fileno(file), &status) == 0 && S_ISREG(status.st_mode) && position >= 0 &&
            position <= status.st_size) {
            remaining_ = static_cast<size_t>(status.st_size - position);
        }
    }
    size_t read(uint8_t* into, size_t size) override {
        const size_t got = std::fread(into, 1, size, file_);
        if (got < size && std::ferror(file_) && error_.empty()) error_ = std::strerror(errno);
        remaining_ -= std::min(remaining_, got);
        return got;
    }
    std::string readError() const override { return error_; }
    size_t available() const override { return remaining_; }

private:
    std::FILE* file_;
    std::string error_;
    size_t remaining_ = SIZE_MAX;  // a pipe's size is not known
};

void writeBytes(Writer& writer, const flatbuffers::Vector<uint8_t>& bytes, std::string& scratch) {
    // One line for the whole array: a pretty printer would give every byte a line of its own.
    scratch.assign("[");
    char digits[4];
    for (uint32_t i = 0; i < bytes.size(); ++i) {
        if (i > 0) scratch.append(", ");
        const auto result = std::to_chars(digits, digits + sizeof digits, bytes.Get(i));
        scratch.append(digits, static_cast<size_t>(result.ptr - digits));
    }
    scratch.append("]");
    writer.RawValue(scratch.data(), scratch.size(), rapidjson::kArrayType);
}

void writeNumberText(Writer& writer, const JsonNumberText& text) {
    if (text.isString) {
        writer.String(text.text, static_cast<rapidjson::SizeType>(text.length));
    } else {
        writer.RawValue(text.text, text.length, rapidjson::kNumberType);
    }
}

class ChunkPrinter {
public:
    explicit ChunkPrinter(Writer& writer) : writer_(writer) {}

    // The table's fields that the chunk holds, in format order. Recursion is
    // bounded by the verifier's maximum depth.
    void writeTable(const flatbuffers::Table& table, TableType type) {
        const TableFormat& format = logjson::tableFormat(type);
        writer_.StartObject();
        for (size_t i = 0; i < format.fieldCount; ++i) {
            const FieldFormat& field = format.fields[i];
            if (!table.CheckField(field.slot)) continue;
            writer_.Key(field.key);
            writeField(table, field);
        }
        writer_.EndObject();
    }

private:
    void writeField(const flatbuffers::Table& table, const FieldFormat& field) {
        const auto slot = field.slot;
        switch (field.type) {
            case FieldType::U8: writer_.Uint(table.GetField<uint8_t>(slot, 0)); break;
            case FieldType::I8: writer_.Int(table.GetField<int8_t>(slot, 0)); break;
            case FieldType::U32: writer_.Uint(table.GetField<uint32_t>(slot, 0)); break;
            case FieldType::I32: writer_.Int(table.GetField<int32_t>(slot, 0)); break;
            case FieldType::U64: writer_.Uint64(table.GetField<uint64_t>(slot, 0)); break;
            case FieldType::I64: writer_.Int64(table.GetField<int64_t>(slot, 0)); break;
            case FieldType::F32:
                writeNumberText(writer_, floatToJson(table.GetField<float>(slot, 0.0f)));
                break;
            case FieldType::F64:
                writeNumberText(writer_, doubleToJson(table.GetField<double>(slot, 0.0)));
                break;
            case FieldType::String: {
                const auto* text = table.GetPointer<const flatbuffers::String*>(slot);
                writer_.String(text->c_str(), text->size());
                break;
            }
            case FieldType::Bytes:
                writeBytes(writer_, *table.GetPointer<const flatbuffers::Vector<uint8_t>*>(slot),
                           scratch_);
                break;
            case FieldType::Table:
                writeTable(*table.GetPointer<const flatbuffers::Table*>(slot), field.table);
                break;
            case FieldType::TableList: {
                const auto* list = table.GetPointer<const TableList*>(slot);
                writer_.StartArray();
                for (uint32_t i = 0; i < list->size(); ++i) {
                    writeTable(*list->Get(i), field.table);
                }
                writer_.EndArray();
                break;
            }
        }
    }

    Writer& writer_;
    std::string scratch_;
};

std::string chunkPlace(size_t index, uint64_t offset) {
    return "chunk " + std::to_string(index) + " at byte offset " + std::to_string(offset);
}

// Reads `size` bytes into `buffer`, growing it only as data arrives and never
// beyond what the source says it still holds.
size_t readBody(ByteSource& source, std::vector<uint8_t>& buffer, size_t size) {
    buffer.clear();
    size_t have = 0;
    while (have < size) {
        const size_t step = std::min({size - have, kReadStep, source.available()});
        if (step == 0) break;
        buffer.resize(have + step);
        const size_t got = source.read(buffer.data() + have, step);
        have += got;
        if (got < step) break;
    }
    buffer.resize(have);
    return have;
}

ConversionStatus decode(ByteSource& source, OutputSink& out) {
    ConversionStatus status;
    Writer writer(out);
    writer.StartObject();
    writer.Key("chunks");
    writer.StartArray();
    ChunkPrinter printer(writer);
    std::vector<uint8_t> buffer;
    uint64_t offset = 0;
    for (;;) {
        uint8_t lengthField[kLengthFieldSize];
        const size_t got = source.read(lengthField, sizeof lengthField);
        if (got < sizeof lengthField && !source.readError().empty()) break;
        if (got == 0) break;
        if (got < sizeof lengthField) {
            // The reader stops quietly at a cut-short length field; so do we, but say so.
            status.warning = "ignored " + std::to_string(got) + " trailing byte(s) at byte offset " +
                             std::to_string(offset) + ", too few for a chunk length";
            break;
        }
        const uint32_t length = static_cast<uint32_t>(lengthField[0]) |
                                static_cast<uint32_t>(lengthField[1]) << 8 |
                                static_cast<uint32_t>(lengthField[2]) << 16 |
                                static_cast<uint32_t>(lengthField[3]) << 24;
        const std::string place = chunkPlace(status.chunkCount, offset);
        if (length >= kMaximumChunkSize) {
            status.error = place + ": corrupt chunk: length " + std::to_string(length) +
                           " is beyond the largest chunk the reader accepts";
            return status;
        }
        const size_t have = readBody(source, buffer, length);
        if (have < length && !source.readError().empty()) break;
        if (have < length) {
            status.error = place + ": truncated chunk: its length field announces " +
                           std::to_string(length) + " bytes, but only " + std::to_string(have) +
                           " follow";
            return status;
        }
        if (!FlatBufferReaderUtil::verifyChunk(buffer.data(), buffer.size())) {
            status.error = place + ": corrupt chunk of " + std::to_string(length) +
                           " bytes: it fails the log verifier";
            return status;
        }
        printer.writeTable(*flatbuffers::GetRoot<flatbuffers::Table>(buffer.data()),
                           TableType::Chunk);
        ++status.chunkCount;
        offset += kLengthFieldSize + length;
    }
    const std::string readError = source.readError();
    if (!readError.empty()) {
        status.error = "cannot read: " + readError;
        return status;
    }
    writer.EndArray();
    writer.EndObject();
    out.Put('\n');
    return status;
}

}  // namespace

ConversionStatus decodeLogFile(const std::string& path, OutputSink& out) {
    const InputFile input(path);
    if (input.get() == nullptr) {
        ConversionStatus status;
        status.error = input.error();
        return status;
    }
    FileSource source(input.get());
    ConversionStatus status = decode(source, out);
    return status;
}

ConversionStatus decodeLogBytes(const uint8_t* data, size_t size, OutputSink& out) {
    MemorySource source(data, size);
    return decode(source, out);
}

}  // namespace profiling
}  // namespace vek
