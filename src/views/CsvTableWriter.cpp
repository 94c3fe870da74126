#include <string>

#include "views/TableWriters.h"
#include "views/Utf8Text.h"

namespace vek {
namespace profiling {
namespace {

// RFC 4180: a field holding a comma, a quote or a line break is quoted, its
// quotes doubled.
std::string csvField(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string field = "\"";
    for (char c : text) {
        if (c == '"') field += '"';
        field += c;
    }
    return field + '"';
}

std::string sectionName(const TableSection& section, const std::string& key) {
    for (const Fact& fact : section.facts) {
        if (fact.key == key) return cellText(fact.value);
    }
    return std::string();
}

}  // namespace

void writeCsvTable(const Table& table, std::ostream& out) {
    std::string line = csvField(table.sectionKey);
    for (const ColumnInfo& column : table.columns) line += "," + csvField(column.key);
    out << line << "\r\n";
    for (const TableSection& section : table.sections) {
        const std::string name = csvField(validUtf8Text(sectionName(section, table.sectionKey)));
        for (const std::vector<Cell>& row : section.rows) {
            line = name;
            for (const Cell& cell : row) line += "," + csvField(validUtf8Text(cellText(cell)));
            out << line << "\r\n";
        }
    }
}

}  // namespace profiling
}  // namespace vek
