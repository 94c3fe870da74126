#include "FuzzSandbox.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "WriteConfinement.h"

namespace vek {
namespace fuzz {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void die(const std::string& message) {
    std::fprintf(stderr, "fuzz sandbox: %s\n", message.c_str());
    std::exit(1);
}

std::string scratchPath;

void removeScratch() {
    if (scratchPath.empty()) return;
    std::error_code ignored;
    for (fs::directory_iterator entry(scratchPath, ignored), end; !ignored && entry != end;
         entry.increment(ignored)) {
        fs::remove_all(entry->path(), ignored);
    }
    fs::current_path(fs::path(scratchPath).parent_path(), ignored);
    // rmdir itself: remove_all tries unlink first, which the sandbox refuses
    // in the scratch directory's parent.
    rmdir(scratchPath.c_str());
}

std::string absoluteFrom(const std::string& base, const std::string& path) {
    if (path.empty() || path[0] == '/') return path;
    return base + "/" + path;
}

bool startsWith(const std::string& text, const char* prefix) {
    return text.compare(0, std::strlen(prefix), prefix) == 0;
}

// The arguments libFuzzer will see, with every path made absolute (the
// process works in the scratch directory), and the directories it writes to.
struct Arguments {
    std::vector<std::string> values;
    std::vector<std::string> writableDirectories;
};

Arguments rewriteArguments(int argc, char** argv, const std::string& startDirectory) {
    Arguments result;
    result.writableDirectories.push_back(startDirectory);
    bool artifactsNamed = false;
    for (int i = 0; i < argc; ++i) {
        std::string argument = argv[i];
        if (i == 0) {
            // the program itself
        } else if (argument.empty() || argument[0] != '-') {
            argument = absoluteFrom(startDirectory, argument);
            if (fs::is_directory(argument)) result.writableDirectories.push_back(argument);
        } else {
            for (const char* flag : {"-artifact_prefix=", "-exact_artifact_path=", "-dict="}) {
                if (!startsWith(argument, flag)) continue;
                const size_t valueStart = std::strlen(flag);
                const std::string value =
                    absoluteFrom(startDirectory, argument.substr(valueStart));
                argument = flag + value;
                if (std::strcmp(flag, "-dict=") != 0) {
                    artifactsNamed = true;
                    // A prefix ending in '/' names the directory itself.
                    result.writableDirectories.push_back(
                        fs::path(value + "x").parent_path().string());
                }
            }
        }
        result.values.push_back(argument);
    }
    // libFuzzer's default is the current directory, which is now the scratch.
    if (!artifactsNamed) result.values.push_back("-artifact_prefix=" + startDirectory + "/");
    return result;
}

void silenceStandardOutput() {
    std::fflush(stdout);
    const int devNull = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (devNull < 0 || dup2(devNull, STDOUT_FILENO) < 0) die("cannot redirect standard output");
    close(devNull);
}

}  // namespace

void enterSandbox(int* argc, char*** argv) {
    const std::string startDirectory = fs::current_path().string();
    static Arguments arguments = rewriteArguments(*argc, *argv, startDirectory);
    static std::vector<char*> pointers;
    for (std::string& value : arguments.values) pointers.push_back(value.data());
    pointers.push_back(nullptr);
    *argc = static_cast<int>(arguments.values.size());
    *argv = pointers.data();

    // Every input writes and removes files there: in memory (tmpfs) when the
    // machine has it.
    std::string pattern;
    for (const std::string& base : {std::string("/dev/shm"), startDirectory}) {
        pattern = base + "/vek-fuzz-scratch-XXXXXX";
        if (mkdtemp(pattern.data()) != nullptr) break;
        pattern.clear();
    }
    if (pattern.empty()) die("cannot create a scratch directory");
    scratchPath = pattern;
    arguments.writableDirectories.push_back(scratchPath);
    std::atexit(removeScratch);
    if (chdir(scratchPath.c_str()) != 0) die("cannot enter " + scratchPath);
    silenceStandardOutput();

    std::string error;
    const tools::Confinement confinement =
        tools::confineWritesTo(arguments.writableDirectories, error,
                                {fs::path(scratchPath).parent_path().string()});
    if (confinement == tools::Confinement::kFailed) die(error);
    if (confinement == tools::Confinement::kUnavailable) {
        const char* unconfined = std::getenv("VEK_FUZZ_UNCONFINED");
        if (unconfined == nullptr || std::strcmp(unconfined, "1") != 0) {
            die("cannot confine file writes (no Landlock in this kernel); set "
                "VEK_FUZZ_UNCONFINED=1 to fuzz without that protection");
        }
        std::fprintf(stderr, "fuzz sandbox: warning: file writes are not confined\n");
    }
}

void clearScratch() {
    std::error_code ignored;
    for (fs::directory_iterator entry(".", ignored), end; !ignored && entry != end;
         entry.increment(ignored)) {
        fs::remove_all(entry->path(), ignored);
    }
}

}  // namespace fuzz
}  // namespace vek
