#include "chrometrace/TraceLanes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace vek {
namespace profiling {
namespace {

constexpr uint64_t kMax = ~uint64_t{0};

struct Slice {
    bool foreground;
    uint64_t ts;
    uint64_t dur;
};

// "thread" per slice, with "+n" when it opened the kind's lane n.
std::vector<std::string> placeAll(const std::vector<Slice>& slices) {
    TraceLanes lanes;
    std::vector<std::string> placed;
    for (const Slice& s : slices) {
        const TraceLanes::Placement p = lanes.place(s.foreground, s.ts, s.dur);
        placed.push_back(std::to_string(p.thread) +
                         (p.openedLane != 0 ? "+" + std::to_string(p.openedLane) : ""));
    }
    return placed;
}

TEST(TraceLanesTest, NoTwoSlicesOfOneThreadOverlap) {
    const struct {
        const char* what;
        std::vector<Slice> slices;
        std::vector<std::string> threads;
    } cases[] = {
        {"fitting background and zero lengths share the lanes",
         {{true, 0, 10}, {false, 0, 10}, {true, 10, 5}, {false, 10, 0}, {false, 10, 5}},
         {"1", "2", "1", "2", "2"}},
        {"background outlasting its op opens one extra lane, reused once free",
         {{false, 0, 30}, {false, 10, 5}, {false, 15, 20}, {false, 30, 5}, {false, 35, 1}},
         {"2", "3+2", "3", "2", "2"}},
        {"each concurrent slice its own lane, foreground lanes numbered apart",
         {{false, 0, 100}, {false, 1, 100}, {false, 2, 100}, {true, 0, 5}, {true, 3, 1}},
         {"2", "3+2", "4+3", "1", "5+2"}},
        {"an end past the u64 range is the end of time; a cursor that wrapped goes back",
         {{true, 10, kMax}, {true, 5, 1}, {true, 6, 4}, {false, 5, kMax - 5}, {false, kMax, 0}},
         {"1", "3+2", "3", "2", "2"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(placeAll(c.slices), c.threads);
    }
}

}  // namespace
}  // namespace profiling
}  // namespace vek
