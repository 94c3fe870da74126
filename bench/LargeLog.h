// Deterministic linting logs of any size for the benchmarks, written chunk by
// chunk so that a log of gigabytes never sits whole in memory.
#pragma once

#include <cstdint>
#include <string>

namespace vek {
namespace profiling {
namespace bench {

// graphs x executions per graph x op records per execution. Every op record
// carries its wait, background, wait-background and resource children and a
// few background names; the log also holds the library-load, context-create,
// compose, finalize (with init events), rate and de-init messages, so every
// section of every report has data.
struct LargeLogShape {
    uint32_t graphs = 2;
    uint32_t executionsPerGraph = 54;
    uint32_t opsPerExecution = 200;
};

// Writes the log to `path` and returns its size in bytes; throws
// std::runtime_error when the file cannot be written. The same shape always
// gives the same bytes.
uint64_t writeLargeLog(const LargeLogShape& shape, const std::string& path);

}  // namespace bench
}  // namespace profiling
}  // namespace vek
