#include "support/Golden.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace testlog {
namespace {

bool updating() {
    const char* value = std::getenv("VEK_UPDATE_GOLDEN");
    return value != nullptr && std::string(value) == "1";
}

void writeText(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

// `diff -u` of the golden file against the actual text.
std::string unifiedDiff(const std::string& goldenFile, const std::string& actual) {
    TempDir dir;
    const std::string actualFile = dir.file("actual");
    writeText(actualFile, actual);
    const std::string command =
        "diff -u --label golden --label actual '" + goldenFile + "' '" + actualFile + "' 2>&1";
    std::string output;
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char buffer[4096];
        size_t got = 0;
        while ((got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, got);
        pclose(pipe);
    }
    constexpr size_t kShown = 16000;  // enough to see the fault, not a wall of text
    if (output.size() > kShown) output = output.substr(0, kShown) + "\n... (diff cut short)\n";
    return output;
}

}  // namespace

std::string goldenPath(const std::string& name) {
    return std::string(VEK_SOURCE_DIR) + "/tests/golden/" + name;
}

::testing::AssertionResult matchesGolden(const std::string& actual, const std::string& name) {
    const std::string path = goldenPath(name);
    if (updating()) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        writeText(path, actual);
        return ::testing::AssertionSuccess() << "rewrote " << path;
    }
    if (!std::filesystem::exists(path)) {
        return ::testing::AssertionFailure()
               << "no golden file " << path << " (run with VEK_UPDATE_GOLDEN=1 to create it)";
    }
    if (readFile(path) == actual) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "differs from " << path
                                         << " (VEK_UPDATE_GOLDEN=1 rewrites it):\n"
                                         << unifiedDiff(path, actual);
}

}  // namespace testlog
}  // namespace profiling
}  // namespace vek
