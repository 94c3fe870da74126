#include "views/TableWriters.h"

namespace vek {
namespace profiling {

bool writeTable(const Table& table, ViewFormat format, std::ostream& out) {
    switch (format) {
        case ViewFormat::Text: writeTextTable(table, out); break;
        case ViewFormat::Csv: writeCsvTable(table, out); break;
        case ViewFormat::Json: writeJsonTable(table, out); break;
    }
    out.flush();
    return static_cast<bool>(out);
}

}  // namespace profiling
}  // namespace vek
