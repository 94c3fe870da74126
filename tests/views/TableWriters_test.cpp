#include "views/TableWriters.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <sstream>
#include <string>
#include <vector>

#include "support/Golden.h"
#include "views/DiffView.h"
#include "views/LogComparison.h"
#include "views/TopView.h"
#include "views/Utf8Text.h"

namespace vek {
namespace profiling {
namespace {

using Rows = std::vector<std::vector<std::string>>;

// Reads RFC 4180 CSV back into rows of fields.
Rows parseCsv(const std::string& text) {
    Rows rows(1, std::vector<std::string>(1));
    bool quoted = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        std::string& field = rows.back().back();
        if (quoted) {
            if (c != '"') {
                field += c;
            } else if (i + 1 < text.size() && text[i + 1] == '"') {
                field += '"';
                ++i;
            } else {
                quoted = false;
            }
        } else if (c == '"') {
            quoted = true;
        } else if (c == ',') {
            rows.back().emplace_back();
        } else if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
            rows.emplace_back(1);
            ++i;
        } else {
            field += c;
        }
    }
    rows.pop_back();  // after the last line end
    return rows;
}

std::string jsonText(const rapidjson::Value& value) {
    if (value.IsNull()) return "";
    if (value.IsString()) return std::string(value.GetString(), value.GetStringLength());
    if (value.IsUint64()) return std::to_string(value.GetUint64());
    if (value.IsInt64()) return std::to_string(value.GetInt64());
    std::ostringstream text;  // decimals keep one place in these tables
    text.setf(std::ios::fixed);
    text.precision(1);
    text << value.GetDouble();
    return text.str();
}

// The table as the machine formats should give it back: a header, then the
// section's name and the cells of every row.
Rows expectedRows(const Table& table) {
    Rows rows{{table.sectionKey}};
    for (const ColumnInfo& column : table.columns) rows[0].push_back(column.key);
    for (const TableSection& section : table.sections) {
        for (const auto& row : section.rows) {
            rows.push_back({validUtf8Text(cellText(section.facts.front().value))});
            for (const Cell& cell : row) rows.back().push_back(validUtf8Text(cellText(cell)));
        }
    }
    return rows;
}

Rows jsonRows(const Table& table, const std::string& json) {
    rapidjson::Document document;
    document.Parse(json.c_str(), json.size());
    EXPECT_FALSE(document.HasParseError()) << json;
    Rows rows{{table.sectionKey}};
    for (const ColumnInfo& column : table.columns) rows[0].push_back(column.key);
    if (document.HasParseError()) return rows;
    EXPECT_EQ(jsonText(document["view"]), table.view);
    for (const auto& section : document[table.sectionsKey.c_str()].GetArray()) {
        for (const auto& row : section[table.rowsKey.c_str()].GetArray()) {
            rows.push_back({jsonText(section[table.sectionKey.c_str()])});
            for (const ColumnInfo& column : table.columns) {
                rows.back().push_back(jsonText(row[column.key.c_str()]));
            }
        }
    }
    return rows;
}

LogFigures hostileFigures(uint64_t scale) {
    GraphFigures graph;
    graph.graphName = "g,\"1\"";
    graph.netRunAverageUs = 100 * scale;
    graph.acceleratorUs = 90 * scale;
    const char* names[] = {"plain", "with, comma", "with \"quotes\"", "two\nlines", "bad \xff utf-8"};
    uint64_t us = 7;
    for (const char* name : names) {
        OpFigures op;
        op.name = name;
        op.averageUs = (us += 11) * scale;
        op.waitUs = us / 3;
        graph.ops.push_back(op);
    }
    LogFigures figures;
    figures.graphs = {graph};
    return figures;
}

TEST(TableWritersTest, CsvAndJsonParseBackToTheSameTable) {
    const LogDiff diff = compareFigures(hostileFigures(1), hostileFigures(3));
    const Table tables[] = {topTable(hostileFigures(1), TopViewOptions{}),
                            diffTable(diff, DiffViewOptions{})};
    for (const Table& table : tables) {
        SCOPED_TRACE(table.view);
        std::ostringstream csv, json;
        writeCsvTable(table, csv);
        writeJsonTable(table, json);
        const Rows expected = expectedRows(table);
        ASSERT_EQ(expected.size(), 6u);
        EXPECT_EQ(parseCsv(csv.str()), expected) << csv.str();
        EXPECT_EQ(jsonRows(table, json.str()), expected) << json.str();
    }
}

TEST(TableWritersTest, TextFromTheLogIsMadeValidAndPrintable) {
    EXPECT_EQ(printableText(std::string("a\nb\x01\x7f", 5)), "a\\nb\\x01\\x7f");
    EXPECT_EQ(displayWidth("\xC3\xA9\xE2\x82\xAC" "a"), 3u);

    // In the text view such names stay on their line, aligned by their width.
    std::ostringstream text;
    writeTextTable(topTable(hostileFigures(1), TopViewOptions{}), text);
    EXPECT_TRUE(testlog::matchesGolden(text.str(), "views/top_hostile_names.txt"));
}

}  // namespace
}  // namespace profiling
}  // namespace vek
