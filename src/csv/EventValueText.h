// Texts of event values and units, shared by every report.
#pragma once

#include <cstdint>
#include <string>

namespace vek {
namespace profiling {

// The value as text by its type code; empty for an unknown code.
std::string eventValueToString(uint32_t dataType, uint64_t payload);
// CSV unit name: "BYTES", "CYCLES", "COUNT", "OBJECT", "NONE", else "US".
std::string unitNameUpper(uint32_t unit);
// Suffix after a value: " bytes", " cycles", " count", " object", " ", else " us".
std::string unitSuffixLower(uint32_t unit);

}  // namespace profiling
}  // namespace vek
