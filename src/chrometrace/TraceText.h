// Small texts of the trace: background work names and resource labels.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vek {
namespace profiling {

// The items in order, each preceded by ", " once the text built so far is
// non-empty. An empty first item adds nothing; an empty item after a
// non-empty one leaves two separators in a row ("a, , c").
std::string joinNames(const std::vector<std::string_view>& names);

// Bit 0 "PQA", bit 1 "PQB", bit 2 "DMA", joined by ", " in that order;
// other bits are ignored, so 0 (or 8) gives the empty label.
std::string resourceLabel(uint8_t mask);

}  // namespace profiling
}  // namespace vek
