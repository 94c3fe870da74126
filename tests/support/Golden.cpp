#include "support/Golden.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support/LogWriter.h"

namespace vek::profiling::testlog {

::testing::AssertionResult matchesGolden(const std::string& actual, const std::string& name) {
    const std::string path = std::string(VEK_SOURCE_DIR) + "/tests/golden/" + name;
    if (const char* update = std::getenv("VEK_UPDATE_GOLDEN"); update != nullptr && std::string(update) == "1") {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary | std::ios::trunc) << actual;
        return ::testing::AssertionSuccess() << "rewrote " << path;
    }
    if (!std::filesystem::exists(path)) {
        return ::testing::AssertionFailure() << "no golden file " << path << " (VEK_UPDATE_GOLDEN=1 creates it)";
    }
    if (readFile(path) == actual) return ::testing::AssertionSuccess();
    // The start of `diff -u`, enough to show the fault.
    TempDir dir;
    std::ofstream(dir.file("actual"), std::ios::binary) << actual;
    const std::string diff = "diff -u --label golden --label actual '" + path + "' '" + dir.file("actual") +
                             "' 2>&1 | head -c 16000 > '" + dir.file("diff") + "'";
    const int ran = std::system(diff.c_str());
    return ::testing::AssertionFailure() << "differs from " << path << " (VEK_UPDATE_GOLDEN=1 rewrites it):\n"
                                         << (ran == -1 ? "(diff did not run)" : readFile(dir.file("diff")));
}

}  // namespace vek::profiling::testlog
