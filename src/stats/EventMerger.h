// Accumulates event lists of several calls by name, keeping a lookup index
// alongside the accumulated tree so that wide lists merge in linear time.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "log/ProfileEvent.h"

namespace vek {
namespace profiling {

class EventMerger {
public:
    // The merger indexes `accumulated` and must be the only writer of it
    // while it lives.
    explicit EventMerger(std::vector<ProfileEvent>& accumulated) : accumulated_(accumulated) {}

    // Merges one call's events: each joins the first accumulated event of the
    // same name, or is appended (object events are never appended).
    void merge(const std::vector<ProfileEvent>& incoming) {
        mergeLevel(accumulated_, root_, incoming);
    }

private:
    // Lookup state of one accumulated list; `children[i]` belongs to the
    // children of the list's i-th event and is created on first need.
    struct LevelIndex {
        bool built = false;
        std::unordered_map<std::string, size_t> firstByName;
        std::vector<LevelIndex> children;
    };

    static void mergeLevel(std::vector<ProfileEvent>& accumulated, LevelIndex& index,
                           const std::vector<ProfileEvent>& incoming);
    static size_t findFirst(const std::vector<ProfileEvent>& accumulated, LevelIndex& index,
                            const std::string& name);

    std::vector<ProfileEvent>& accumulated_;
    LevelIndex root_;
};

}  // namespace profiling
}  // namespace vek
