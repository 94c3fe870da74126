// Outcome of a decode or encode run.
#pragma once

#include <cstddef>
#include <string>

namespace vek {
namespace profiling {

struct ConversionStatus {
    std::string error;    // empty on success
    std::string warning;  // something tolerated, worth telling the user
    size_t chunkCount = 0;

    bool ok() const { return error.empty(); }
};

}  // namespace profiling
}  // namespace vek
