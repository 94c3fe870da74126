// The three writers of a view table: aligned text for people, CSV (RFC 4180)
// and JSON for programs.
#pragma once

#include <ostream>

#include "VekChrometraceProfilingReader.h"
#include "views/ViewTable.h"

namespace vek {
namespace profiling {

// The view's facts, then per section its heading lines, the rows aligned in
// columns under a heading and a unit line, and its closing lines.
void writeTextTable(const Table& table, std::ostream& out);
// One header line and a line per row of every section, the section's name
// first; fields quoted where they hold a comma, a quote or a line break;
// lines end with CRLF.
void writeCsvTable(const Table& table, std::ostream& out);
// One object: the view's facts and an array of sections, each with its facts
// and an array of row objects. Whole numbers are JSON integers.
void writeJsonTable(const Table& table, std::ostream& out);

// One section's rows as an HTML table whose columns sort when their heading
// is clicked (the report's script); each cell carries its machine text in
// "data-v".
void writeHtmlTable(const std::vector<ColumnInfo>& columns, const TableSection& section,
                    std::ostream& out);

// The table in the format; false when the stream failed.
bool writeTable(const Table& table, ViewFormat format, std::ostream& out);

}  // namespace profiling
}  // namespace vek
