#include "LogJson.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string>

#include "LogJsonSchema.h"
#include "LogRefusal.h"
#include "log/LogScan.h"

namespace vek {
namespace profiling {
namespace {

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
// reads back. Such a field's name is marked with a leading \1 and f or d:
// the generator escapes that byte in strings, so only these names carry it.
class ChunkTextWriter {
public:
    ChunkTextWriter() : parser_(loadLogSchema()) {
        for (flatbuffers::StructDef* table : parser_->structs_.vec) {
            for (flatbuffers::FieldDef* field : table->fields.vec) {
                flatbuffers::BaseType& type = field->value.type.base_type;
                if (type != flatbuffers::BASE_TYPE_FLOAT && type != flatbuffers::BASE_TYPE_DOUBLE)
                    continue;
                const bool isFloat = type == flatbuffers::BASE_TYPE_FLOAT;
                field->name.insert(0, isFloat ? "\1f" : "\1d");
                field->value.constant = "0";  // the default, read as the new type
                type = isFloat ? flatbuffers::BASE_TYPE_UINT : flatbuffers::BASE_TYPE_ULONG;
            }
        }
    }

    // Writes a verified chunk as a JSON object, every line after the first
    // indented by eight more blanks. False when the generator fails.
    bool write(const uint8_t* chunk, std::ostream& out) {
        scratch_.clear();
        if (!flatbuffers::GenerateText(*parser_, chunk, &scratch_)) return false;
        const std::string_view text(scratch_.data(), scratch_.find_last_not_of('\n') + 1);
        for (size_t start = 0; start <= text.size();) {
            const size_t end = std::min(text.find('\n', start), text.size());
            const std::string_view line = text.substr(start, end - start);
            if (start > 0) out << '\n' << (line.empty() ? "" : "        ");
            start = end + 1;
            const size_t marker = line.find('\1');  // in a line: blanks, "\1fname": BITS
            if (marker == std::string_view::npos) {
                out << line;
                continue;
            }
            const size_t value = line.find("\": ", marker) + 3;
            const bool comma = line.back() == ',';
            uint64_t bits = 0;
            std::from_chars(line.data() + value, line.data() + line.size() - comma, bits);
            out << line.substr(0, marker) << line.substr(marker + 2, value - marker - 2)
                << (line[marker + 1] == 'f' ? exactText<float>(static_cast<uint32_t>(bits))
                                            : exactText<double>(bits))
                << (comma ? "," : "");
        }
        return true;
    }

private:
    std::unique_ptr<flatbuffers::Parser> parser_;
    std::string scratch_;
};

}  // namespace

ConversionStatus decodeLog(std::FILE* log, std::ostream& json) {
    ConversionStatus status;
    // Loading the schema costs more than a small log.
    thread_local ChunkTextWriter writer;
    json << "{\n    \"chunks\": [";
    LogScanCallbacks callbacks;
    callbacks.prefixChunk = [&](const ChunkBuffer& chunk) {
        json << (status.chunkCount++ > 0 ? "," : "") << "\n        ";
        return writer.write(chunk.data(), json);
    };
    const LogScanSummary scan = scanLog(log, ScanExtent::kValidPrefix, callbacks);
    const ChunkProblem& problem = scan.firstProblem;
    if (scan.stopped) {
        status.error = "chunk " + std::to_string(status.chunkCount - 1) +
                       ": the text generator refuses the chunk";
    } else if (problem.kind == ChunkProblemKind::TrailingBytes) {
        status.warning = tools::describeChunkProblem(problem);  // readers ignore them too
    } else if (problem.kind != ChunkProblemKind::None) {
        status.error = tools::describeChunkProblem(problem);
    }
    json << "\n    ]\n}\n";
    return status;
}

}  // namespace profiling
}  // namespace vek
