#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <string>

#include "views/TableWriters.h"
#include "views/Utf8Text.h"

namespace vek {
namespace profiling {
namespace {

using JsonWriter = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

void writeText(JsonWriter& writer, const std::string& text) {
    const std::string valid = validUtf8Text(text);
    writer.String(valid.data(), static_cast<rapidjson::SizeType>(valid.size()), true);
}

void writeCell(JsonWriter& writer, const Cell& cell) {
    if (const auto* value = std::get_if<uint64_t>(&cell)) {
        writer.Uint64(*value);
    } else if (const auto* value = std::get_if<int64_t>(&cell)) {
        writer.Int64(*value);
    } else if (const auto* text = std::get_if<std::string>(&cell)) {
        writeText(writer, *text);
    } else if (std::holds_alternative<Decimal>(cell) && !cellText(cell).empty()) {
        // Written as the other formats write it, so that all of them agree.
        const std::string number = cellText(cell);
        writer.RawValue(number.data(), number.size(), rapidjson::kNumberType);
    } else {
        writer.Null();
    }
}

void writeFacts(JsonWriter& writer, const std::vector<Fact>& facts) {
    for (const Fact& fact : facts) {
        writeText(writer, fact.key);
        writeCell(writer, fact.value);
    }
}

}  // namespace

void writeJsonTable(const Table& table, std::ostream& out) {
    rapidjson::StringBuffer buffer;
    JsonWriter writer(buffer);
    writer.SetIndent(' ', 2);
    writer.StartObject();
    writeText(writer, "view");
    writeText(writer, table.view);
    writeFacts(writer, table.facts);
    writeText(writer, table.sectionsKey);
    writer.StartArray();
    for (const TableSection& section : table.sections) {
        writer.StartObject();
        writeFacts(writer, section.facts);
        writeText(writer, table.rowsKey);
        writer.StartArray();
        for (const std::vector<Cell>& row : section.rows) {
            writer.StartObject();
            for (size_t i = 0; i < row.size() && i < table.columns.size(); ++i) {
                writeText(writer, table.columns[i].key);
                writeCell(writer, row[i]);
            }
            writer.EndObject();
        }
        writer.EndArray();
        writer.EndObject();
    }
    writer.EndArray();
    writer.EndObject();
    out.write(buffer.GetString(), static_cast<std::streamsize>(buffer.GetSize()));
    out << '\n';
}

}  // namespace profiling
}  // namespace vek
