#include "chrometrace/TraceText.h"

namespace vek {
namespace profiling {

std::string joinNames(const std::vector<std::string_view>& names) {
    std::string joined;
    for (std::string_view name : names) {
        // The test is on the text so far, not on the item: an empty item
        // after a non-empty one still gets its separator.
        if (!joined.empty()) joined += ", ";
        joined += name;
    }
    return joined;
}

std::string resourceLabel(uint8_t mask) {
    static constexpr struct {
        uint8_t bit;
        const char* word;
    } kResources[] = {{0x1, "PQA"}, {0x2, "PQB"}, {0x4, "DMA"}};

    std::string label;
    for (const auto& resource : kResources) {
        if ((mask & resource.bit) == 0) continue;
        if (!label.empty()) label += ", ";
        label += resource.word;
    }
    return label;
}

}  // namespace profiling
}  // namespace vek
