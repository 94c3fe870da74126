// Threads for the slices of one process. Viewers build the slices of a
// thread into a tree of nested calls: a slice that starts inside another and
// ends after it is dropped or drawn in the wrong place. Background work that
// outlasts its op would do exactly that, so no two slices of one thread may
// overlap here; a slice that finds its lane busy goes to an extra lane of
// its kind.
#pragma once

#include <cstdint>
#include <functional>
#include <queue>
#include <utility>
#include <vector>

namespace vek {
namespace profiling {

class TraceLanes {
public:
    static constexpr uint32_t kForegroundThread = 1;
    static constexpr uint32_t kBackgroundThread = 2;

    struct Placement {
        uint32_t thread = 0;
        // When the slice opened an extra lane, which needs naming: the lane's
        // number within its kind (2, 3, ...); otherwise 0.
        uint32_t openedLane = 0;
    };

    // The thread for a slice [ts, ts + dur) of the given kind: the kind's own
    // lane when it is free by `ts`, else a free extra lane of the kind, else
    // a new one (thread ids 3, 4, ... in the order opened, both kinds alike).
    // Slices may come in any order of ts; an end past the u64 range counts
    // as the end of time.
    Placement place(bool foreground, uint64_t ts, uint64_t dur);

    // Every lane free again and no extra lane: for the next process.
    void reset();

    uint32_t threadCount() const { return nextThread_ - 1; }

private:
    using LaneEnd = std::pair<uint64_t, uint32_t>;  // when the lane is free, its thread
    struct Kind {
        uint64_t ownEnd = 0;
        uint32_t extraLanes = 0;
        std::priority_queue<LaneEnd, std::vector<LaneEnd>, std::greater<LaneEnd>> extraEnds;
    };

    Kind foreground_;
    Kind background_;
    uint32_t nextThread_ = 3;
};

}  // namespace profiling
}  // namespace vek
