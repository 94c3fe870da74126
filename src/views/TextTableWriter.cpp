#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "views/TableWriters.h"
#include "views/Utf8Text.h"

namespace vek {
namespace profiling {
namespace {

constexpr const char* kIndent = "  ";
constexpr const char* kGap = "  ";

std::string textOf(const Cell& cell, bool showPlus, const std::string& emptyText) {
    if (const auto* text = std::get_if<std::string>(&cell)) return printableText(*text);
    return shownText(cell, showPlus, emptyText);
}

void writeLine(std::ostream& out, std::string line) {
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
}

// Facts of one line make one line of text, in the order given.
void writeFactLines(std::ostream& out, const std::vector<Fact>& facts, bool footer) {
    std::map<int, std::string> lines;
    for (const Fact& fact : facts) {
        if ((fact.line < 0) != footer) continue;
        if (fact.quietWhenBlank && isBlank(fact.value)) continue;
        const bool absent = std::holds_alternative<std::monostate>(fact.value);
        lines[footer ? -fact.line : fact.line] += fact.before +
                                                  textOf(fact.value, fact.showPlus, "-") +
                                                  (absent ? "" : fact.unit) + fact.after;
    }
    for (const auto& line : lines) writeLine(out, line.second);
}

std::string padded(const std::string& text, size_t width, Align align) {
    const size_t fill = width - std::min(width, displayWidth(text));
    return align == Align::Right ? std::string(fill, ' ') + text : text + std::string(fill, ' ');
}

void writeRow(std::ostream& out, const std::vector<std::string>& cells,
              const std::vector<ColumnInfo>& columns, const std::vector<size_t>& widths) {
    std::string line = kIndent;
    for (size_t i = 0; i < cells.size(); ++i) {
        if (i > 0) line += kGap;
        line += padded(cells[i], widths[i], columns[i].align);
    }
    writeLine(out, line);
}

}  // namespace

void writeTextTable(const Table& table, std::ostream& out) {
    const std::vector<ColumnInfo>& columns = table.columns;
    // Every section's rows as text, and one set of widths for all of them.
    std::vector<size_t> widths(columns.size(), 0);
    std::vector<std::string> headings;
    std::vector<std::string> units;
    bool anyUnit = false;
    for (size_t i = 0; i < columns.size(); ++i) {
        headings.push_back(columns[i].heading);
        units.push_back(columns[i].unit);
        anyUnit = anyUnit || !columns[i].unit.empty();
        widths[i] = std::max(displayWidth(columns[i].heading), displayWidth(columns[i].unit));
    }
    std::vector<std::vector<std::vector<std::string>>> texts(table.sections.size());
    for (size_t s = 0; s < table.sections.size(); ++s) {
        for (const std::vector<Cell>& row : table.sections[s].rows) {
            std::vector<std::string> cells;
            for (size_t i = 0; i < columns.size(); ++i) {
                cells.push_back(textOf(row[i], columns[i].showPlus, columns[i].emptyText));
                widths[i] = std::max(widths[i], displayWidth(cells.back()));
            }
            texts[s].push_back(std::move(cells));
        }
    }

    writeFactLines(out, table.facts, false);
    for (size_t s = 0; s < table.sections.size(); ++s) {
        out << '\n';
        const TableSection& section = table.sections[s];
        writeFactLines(out, section.facts, false);
        if (section.rows.empty()) {
            if (!section.emptyText.empty()) writeLine(out, kIndent + section.emptyText);
        } else {
            writeRow(out, headings, columns, widths);
            if (anyUnit) writeRow(out, units, columns, widths);
            for (const std::vector<std::string>& cells : texts[s]) {
                writeRow(out, cells, columns, widths);
            }
        }
        writeFactLines(out, section.facts, true);
    }
}

}  // namespace profiling
}  // namespace vek
