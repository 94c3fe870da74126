// A view as data: columns that say how each cell of a record is written,
// facts about the whole view and about each section (graph), and the cells
// of every row. The text, CSV and JSON writers all work from this one table.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace vek {
namespace profiling {

// A figure with a fixed number of decimals, written the same in every format.
struct Decimal {
    double value = 0.0;
    int places = 1;
};

// No value (std::monostate), a whole number, a decimal or a text.
using Cell = std::variant<std::monostate, uint64_t, int64_t, Decimal, std::string>;

// The cell as the machine formats write it: "" for no value, decimals with
// their places, texts as they are.
std::string cellText(const Cell& cell);
// The cell as people read it: `emptyText` for no value, "+" before a
// positive figure when `showPlus` (not before one that rounds to 0).
std::string shownText(const Cell& cell, bool showPlus, const std::string& emptyText);
// Whether the cell is no value, zero or the empty text.
bool isBlank(const Cell& cell);
// Optional figures become no value when absent.
template <typename T>
Cell optionalCell(const std::optional<T>& value) {
    return value ? Cell(*value) : Cell();
}

enum class Align { Left, Right };

struct ColumnInfo {
    std::string key;      // CSV header and JSON member name
    std::string heading;  // text header
    std::string unit;     // text header, second line
    Align align = Align::Right;
    bool showPlus = false;         // text: "+12" for a positive change
    std::string emptyText = "-";   // text: what stands for no value
};

// A column of a table of `Record`s.
template <typename Record>
struct Column {
    ColumnInfo info;
    std::function<Cell(const Record&)> cell;
};

// A named figure of the view or of a section. In text a section's facts make
// its heading lines: `before`, the value and its unit (left out with the
// value), `after`, line by line.
struct Fact {
    std::string key;  // JSON member name
    std::string before{};
    Cell value{};
    std::string unit{};
    std::string after{};
    int line = 0;                 // text: facts of one line share it; negative lines follow the rows
    bool quietWhenBlank = false;  // text: left out when blank
    bool showPlus = false;        // text: "+12" for a positive change
};

struct TableSection {
    std::vector<Fact> facts;
    std::vector<std::vector<Cell>> rows;
    std::string emptyText;  // text: written when there are no rows
};

struct Table {
    std::string view;         // JSON member "view"
    std::vector<Fact> facts;  // about the whole view
    // The sections' fact that names them: CSV writes it as the first column.
    std::string sectionKey;
    std::string sectionsKey;  // JSON: the array of sections
    std::string rowsKey;      // JSON: each section's array of rows
    std::vector<ColumnInfo> columns;
    std::vector<TableSection> sections;
};

// A table of the op views: a section per graph (named by its "graph" fact),
// each with its "ops".
inline Table graphOpsTable(std::string view, std::vector<Fact> facts,
                           std::vector<ColumnInfo> columns) {
    Table table;
    table.view = std::move(view);
    table.facts = std::move(facts);
    table.sectionKey = "graph";
    table.sectionsKey = "graphs";
    table.rowsKey = "ops";
    table.columns = std::move(columns);
    return table;
}

template <typename Record>
std::vector<ColumnInfo> columnInfos(const std::vector<Column<Record>>& columns) {
    std::vector<ColumnInfo> infos;
    for (const Column<Record>& column : columns) infos.push_back(column.info);
    return infos;
}

template <typename Record>
std::vector<Cell> rowOf(const std::vector<Column<Record>>& columns, const Record& record) {
    std::vector<Cell> row;
    row.reserve(columns.size());
    for (const Column<Record>& column : columns) row.push_back(column.cell(record));
    return row;
}

}  // namespace profiling
}  // namespace vek
