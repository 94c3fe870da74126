// vek-bench-make-log: writes a deterministic linting log of the given shape.
//
//   vek-bench-make-log GRAPHS EXECUTIONS_PER_GRAPH OPS_PER_EXECUTION OUT.log
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "LargeLog.h"

namespace {

bool parseCount(const char* text, uint32_t& count) {
    char* end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 10);
    if (*text == '\0' || *end != '\0' || value == 0 || value > 100000000ul) return false;
    count = static_cast<uint32_t>(value);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    vek::profiling::bench::LargeLogShape shape;
    if (argc != 5 || !parseCount(argv[1], shape.graphs) ||
        !parseCount(argv[2], shape.executionsPerGraph) ||
        !parseCount(argv[3], shape.opsPerExecution)) {
        std::fprintf(stderr,
                     "usage: vek-bench-make-log GRAPHS EXECUTIONS_PER_GRAPH OPS_PER_EXECUTION "
                     "OUT.log\n");
        return 2;
    }
    try {
        const uint64_t size = vek::profiling::bench::writeLargeLog(shape, argv[4]);
        std::printf("%s: %llu bytes\n", argv[4], static_cast<unsigned long long>(size));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vek-bench-make-log: %s\n", error.what());
        return 1;
    }
    return 0;
}
