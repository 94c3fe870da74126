// Fuzz target: arbitrary bytes as the JSON form of a log, through the log
// tool's encoder; whatever it accepts must decode, and the decoded JSON must
// come back unchanged from a second round trip.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "reliability/JsonRoundTrip.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string problem = vek::profiling::reliability::jsonRoundTripProblem(
        std::string(reinterpret_cast<const char*>(data), size));
    if (!problem.empty()) {
        std::fprintf(stderr, "round trip broken: %s\n", problem.c_str());
        std::abort();
    }
    return 0;
}
