#include <string>

#include "views/HtmlText.h"
#include "views/TableWriters.h"

namespace vek {
namespace profiling {

void writeHtmlTable(const std::vector<ColumnInfo>& columns, const TableSection& section,
                    std::ostream& out) {
    const auto classOf = [](const ColumnInfo& column) {
        return column.align == Align::Right ? " class=\"num\"" : "";
    };
    out << "<table class=\"sortable\">\n<thead><tr>";
    for (const ColumnInfo& column : columns) {
        out << "<th" << classOf(column) << " title=\"" << htmlEscaped(column.key) << "\">"
            << htmlEscaped(column.heading);
        if (!column.unit.empty()) out << " <span class=\"unit\">" << htmlEscaped(column.unit) << "</span>";
        out << "</th>";
    }
    out << "</tr></thead>\n<tbody>\n";
    for (const std::vector<Cell>& row : section.rows) {
        out << "<tr>";
        for (size_t i = 0; i < row.size() && i < columns.size(); ++i) {
            out << "<td" << classOf(columns[i]) << " data-v=\"" << htmlEscaped(cellText(row[i]))
                << "\">"
                << htmlEscaped(shownText(row[i], columns[i].showPlus, columns[i].emptyText))
                << "</td>";
        }
        out << "</tr>\n";
    }
    out << "</tbody>\n</table>\n";
}

}  // namespace profiling
}  // namespace vek
