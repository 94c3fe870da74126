#include "chrometrace/TraceLanes.h"

#include <limits>

namespace vek {
namespace profiling {

TraceLanes::Placement TraceLanes::place(bool foreground, uint64_t ts, uint64_t dur) {
    const uint64_t end =
        dur > std::numeric_limits<uint64_t>::max() - ts ? std::numeric_limits<uint64_t>::max()
                                                        : ts + dur;
    Kind& kind = foreground ? foreground_ : background_;
    // A lane is free for a slice that starts at or after the end of the lane's
    // last slice; zero-length slices may share an instant.
    if (ts >= kind.ownEnd) {
        kind.ownEnd = end;
        return Placement{foreground ? kForegroundThread : kBackgroundThread, 0};
    }
    // Any free extra lane will do: the fewest lanes are opened when slices
    // come in the order of ts, as the timeline lays them.
    Placement placement;
    if (!kind.extraEnds.empty() && kind.extraEnds.top().first <= ts) {
        placement.thread = kind.extraEnds.top().second;
        kind.extraEnds.pop();
    } else {
        placement.thread = nextThread_++;
        placement.openedLane = ++kind.extraLanes + 1;  // the kind's own lane is the first
    }
    kind.extraEnds.emplace(end, placement.thread);
    return placement;
}

void TraceLanes::reset() {
    foreground_ = Kind();
    background_ = Kind();
    nextThread_ = 3;
}

}  // namespace profiling
}  // namespace vek
