#include "stats/EventMerger.h"

namespace vek {
namespace profiling {
namespace {

constexpr size_t kNotFound = static_cast<size_t>(-1);

// Short lists are scanned; hashing pays off only once a list is wider.
constexpr size_t kIndexedWidth = 16;

}  // namespace

size_t EventMerger::findFirst(const std::vector<ProfileEvent>& accumulated, LevelIndex& index,
                              const std::string& name) {
    if (!index.built) {
        if (accumulated.size() < kIndexedWidth) {
            for (size_t i = 0; i < accumulated.size(); ++i) {
                if (accumulated[i].name == name) return i;
            }
            return kNotFound;
        }
        // emplace keeps the first position of a repeated name, so a later
        // duplicate can never become the match.
        index.firstByName.reserve(accumulated.size() * 2);
        for (size_t i = 0; i < accumulated.size(); ++i) index.firstByName.emplace(accumulated[i].name, i);
        index.built = true;
    }
    const auto found = index.firstByName.find(name);
    return found == index.firstByName.end() ? kNotFound : found->second;
}

void EventMerger::mergeLevel(std::vector<ProfileEvent>& accumulated, LevelIndex& index,
                             const std::vector<ProfileEvent>& incoming) {
    if (accumulated.empty()) {
        // The first list is taken as it is, repeated names included.
        accumulated.reserve(incoming.size());
        for (const ProfileEvent& event : incoming) {
            if (event.unit != kUnitObject) accumulated.push_back(event);
        }
        return;
    }
    for (const ProfileEvent& event : incoming) {
        const size_t position = findFirst(accumulated, index, event.name);
        if (position != kNotFound) {
            ProfileEvent& target = accumulated[position];
            // Matched values are summed as raw u64 whatever their codes were.
            target.value.dataType = kDataTypeUInt64;
            target.value.payload += event.value.payload;
            ++target.sampleCount;
            if (event.children.empty()) continue;
            if (index.children.size() <= position) index.children.resize(accumulated.size());
            mergeLevel(target.children, index.children[position], event.children);
        } else if (event.unit != kUnitObject) {
            accumulated.push_back(event);
            if (index.built) index.firstByName.emplace(event.name, accumulated.size() - 1);
        }
    }
}

}  // namespace profiling
}  // namespace vek
