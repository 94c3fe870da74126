#include "support/Golden.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support/LogWriter.h"

namespace vek::profiling::testlog {
namespace {

void writeText(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

// `diff -u` of the golden file against the actual text, cut short past what
// shows the fault.
std::string unifiedDiff(const std::string& goldenFile, const std::string& actual) {
    TempDir dir;
    writeText(dir.file("actual"), actual);
    const std::string command = "diff -u --label golden --label actual '" + goldenFile + "' '" +
                                dir.file("actual") + "' > '" + dir.file("diff") + "' 2>&1";
    if (std::system(command.c_str()) == -1) return "(diff did not run)";
    const std::string diff = readFile(dir.file("diff"));
    constexpr size_t kShown = 16000;
    return diff.size() > kShown ? diff.substr(0, kShown) + "\n... (diff cut short)\n" : diff;
}

}  // namespace

::testing::AssertionResult matchesGolden(const std::string& actual, const std::string& name) {
    const std::string path = std::string(VEK_SOURCE_DIR) + "/tests/golden/" + name;
    const char* update = std::getenv("VEK_UPDATE_GOLDEN");
    if (update != nullptr && std::string(update) == "1") {
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

}  // namespace vek::profiling::testlog
