// Opens a profile log for the commands that read one, refusing with a line of
// its own each a missing file, a directory and an empty file.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "InputFile.h"
#include "LogRefusal.h"

namespace vek {
namespace profiling {

// The log at `path` ("-" is standard input), or null after saying on
// standard error why it cannot be read.
inline std::unique_ptr<InputFile> openLogInput(const std::string& path) {
    const std::string refusal = path == "-" ? std::string() : tools::logFileRefusal(path);
    auto input = refusal.empty() ? std::make_unique<InputFile>(path) : nullptr;
    if (input && input->get() != nullptr) return input;
    std::fprintf(stderr, "vek-profile-log: %s: %s\n", path.c_str(),
                 refusal.empty() ? input->error().c_str() : refusal.c_str());
    return nullptr;
}

}  // namespace profiling
}  // namespace vek
