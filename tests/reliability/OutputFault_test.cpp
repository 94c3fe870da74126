// Outputs that cannot be written: a read-only file, a full device, a file
// size limit that cuts a write short, standard output that fails. The
// readers refuse with their messages; the command-line host turns every
// failed or short write into a message and exit status 1, never a cut-off
// file presented as success.
#include <gtest/gtest.h>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <ios>
#include <string>
#include <vector>

#include "chrometrace/LintingIdentifiers.h"
#include "reader/VekProfileLogReaderChrometrace.h"
#include "support/LogCapture.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using namespace testlog;

constexpr uid_t kNobody = 65534;

// A read-only file stays writable for root; while this lives, the calling
// thread's file access is checked as an unprivileged user's.
class UnprivilegedFileAccess {
public:
    UnprivilegedFileAccess() : root_(geteuid() == 0) {
        if (root_) setfsuid(kNobody);
    }
    ~UnprivilegedFileAccess() {
        if (root_) setfsuid(0);
    }

private:
    bool root_;
};

// An op record as the runtime logs it under an execution event.
EventSpec loggedOp(const std::string& name) {
    return EventSpec::u64(name, 40, 1, kOpRecordIdentifier).withChildren({
        EventSpec::u64("wait", 5, 1, kWaitDurationIdentifier),
        EventSpec::u64("bg", 30, 1, kOpBackgroundIdentifier),
        EventSpec::u64("bg wait", 3, 1, kWaitBackgroundIdentifier),
        EventSpec::u64("resources", 1, 1, kResourceMaskIdentifier)});
}

// A linting log with `ops` op records and, when `objectBytes` is non-zero,
// an object event of that many bytes saved as blob.bin.
LogWriter lintingLog(size_t ops, size_t objectBytes) {
    std::vector<EventSpec> records;
    for (size_t i = 0; i < ops; ++i) records.push_back(loggedOp("op_" + std::to_string(i)));
    std::vector<EventSpec> events = {EventSpec::u64("Accelerator", 200).withChildren(records)};
    if (objectBytes > 0) {
        events.push_back(EventSpec::object("Blob", std::vector<uint8_t>(objectBytes, 7), "blob.bin"));
    }
    LogWriter log;
    log.chunk()
        .header(HeaderSpec{}.tool("net-run", "2.0"))
        .message(MessageSpec(kExecute).graph("g0").times(100, 350).withEvents(events));
    return log;
}

class OutputFaultTest : public ::testing::Test {
protected:
    void SetUp() override {
        // Open to an unprivileged user, who must find the logs but not write
        // the read-only output.
        std::filesystem::permissions(dir_.path(), std::filesystem::perms(0755));
        lintingLog(2, 64 * 1024).writeTo(dir_.file("run.bin"));
        lintingLog(400, 0).writeTo(dir_.file("big.bin"));  // a trace of about 100 kB
        {
            std::ofstream old(dir_.file("readonly.out"));
            old << "old content";
        }
        chmod(dir_.file("readonly.out").c_str(), 0444);
    }

    TempDir dir_;
};

TEST_F(OutputFaultTest, ReadersRefuseAReadOnlyFileAndLeaveIt) {
    const std::string path = dir_.file("readonly.out");
    VekProfileLogReaderChrometrace chrome(dir_.file("run.bin"), VisibilityLevel(10));
    VekProfileLogReader summary(dir_.file("run.bin"), VisibilityLevel(10));
    ASSERT_TRUE(chrome.loadLog(false));
    ASSERT_TRUE(summary.loadLog(false));
    LogCapture capture;
    testing::internal::CaptureStdout();
    bool traced = true;
    bool summarised = true;
    {
        UnprivilegedFileAccess unprivileged;
        traced = chrome.writeOutput(path);
        summarised = summary.writeOutput(path);
    }
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_FALSE(traced);
    EXPECT_FALSE(summarised);
    EXPECT_TRUE(capture.contains("Invalid output chrometraceFile: [" + path + "]", 1));
    EXPECT_TRUE(capture.contains("Invalid output file: [" + path + "]", 1));
    EXPECT_EQ(printed, "");
    EXPECT_EQ(readFile(path), "old content");
}

TEST_F(OutputFaultTest, CsvOnAFullDeviceRaisesTheStreamFailure) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
    VekProfileLogReader summary(dir_.file("run.bin"), VisibilityLevel(10));
    ASSERT_TRUE(summary.loadLog(false));
    testing::internal::CaptureStdout();
    EXPECT_THROW(summary.writeOutput("/dev/full"), std::ios_base::failure);
    testing::internal::GetCapturedStdout();
}

struct HostRun {
    int status;
    std::string err;
};

// Where the viewer and the plug-in it loads are run from. The unprivileged
// user of the read-only cases may not be able to enter the build tree (a
// checkout in a private home or container directory), so for them both are
// copied into the test's own world-readable directory and the copy of the
// plug-in is found through LD_LIBRARY_PATH.
std::string viewerCommand(const TempDir& dir, bool unprivileged) {
    if (!unprivileged) return std::string("'") + VEK_PROFILE_VIEWER_TOOL + "'";
    namespace fs = std::filesystem;
    const fs::path bin = fs::path(dir.path()) / "bin";
    fs::create_directories(bin);
    fs::permissions(bin, fs::perms(0755));
    const auto copyOptions = fs::copy_options::overwrite_existing;
    fs::copy_file(VEK_PROFILE_VIEWER_TOOL, bin / "vek-profile-viewer", copyOptions);
    fs::copy_file(VEK_PLUGIN_PATH, bin / fs::path(VEK_PLUGIN_PATH).filename(), copyOptions);
    return "LD_LIBRARY_PATH='" + bin.string() +
           "' setpriv --reuid=65534 --regid=65534 --clear-groups '" +
           (bin / "vek-profile-viewer").string() + "'";
}

// Runs vek-profile-viewer in the test directory. `shellSetup` runs first in
// the same shell (limits, signal dispositions); `stdoutTarget` receives the
// tool's standard output.
HostRun runHost(const TempDir& dir, const std::string& arguments, const std::string& shellSetup,
                const std::string& stdoutTarget, bool unprivileged = false) {
    const std::string command = "cd '" + dir.path() + "' && " + shellSetup +
                                viewerCommand(dir, unprivileged && geteuid() == 0) + " " +
                                arguments + " > " + stdoutTarget + " 2> '" + dir.file("stderr") +
                                "'";
    const int status = std::system(command.c_str());
    return HostRun{WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(dir.file("stderr"))};
}

// A file size limit of 16 kB, with the signal that would kill the writer
// ignored, so that a longer write comes back short.
const char* const kSmallFiles = "ulimit -f 16 && trap '' XFSZ && ";

TEST_F(OutputFaultTest, HostExitsWithOneOnEveryFailedOrShortWrite) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
    // Root writes read-only files; setpriv runs the host as nobody instead.
    // The test directory itself must be open to that user (a TMPDIR inside
    // a private directory is not).
    const std::string probe = "setpriv --reuid=65534 --regid=65534 --clear-groups test -r '" +
                              dir_.file("run.bin") + "' 2> /dev/null";
    const bool readOnlyHolds = geteuid() != 0 || std::system(probe.c_str()) == 0;
    struct Case {
        const char* what;
        std::string arguments;
        std::string shellSetup;
        std::string stdoutTarget;
        bool unprivileged;
        std::string message;  // expected on standard error
    };
    const std::string out = "'" + dir_.file("out") + "'";
    const std::vector<Case> cases = {
        {"read-only trace", "run.bin -o readonly.out", "", out, true,
         "Invalid output chrometraceFile: ["},
        {"read-only CSV", "-m summary run.bin -o readonly.out", "", out, true,
         "Invalid output file: ["},
        {"CSV in a missing directory", "-m summary run.bin -o missing/out.csv", "", out, false,
         "Invalid output file: ["},
        {"trace cut short", "big.bin -o trace.json", kSmallFiles, "/dev/null", false,
         "Invalid output chrometraceFile: ["},
        {"CSV cut short", "-m summary big.bin -o summary.csv", kSmallFiles, "/dev/null", false,
         "Invalid output file: ["},
        {"object file cut short", "run.bin --save-objects -o trace.json", kSmallFiles, "/dev/null", false,
         "Invalid output fileName: [blob.bin]"},
        {"summary to a full device", "run.bin -o trace.json", "", "/dev/full", false,
         "writing to standard output failed"},
        {"full summary to a full device", "-m summary run.bin", "", "/dev/full", false,
         "writing to standard output failed"},
        {"header to a full device", "-m header run.bin", "", "/dev/full", false,
         "writing to standard output failed"},
    };
    for (const Case& c : cases) {
        if (c.unprivileged && !readOnlyHolds) {
            // Said in the output, so that a run without the case is not
            // mistaken for one that proved it.
            std::cout << "[ SKIPPED  ] " << c.what << ": the unprivileged user (setpriv, uid "
                      << "65534) cannot reach the test directory\n";
            continue;
        }
        const HostRun run = runHost(dir_, c.arguments, c.shellSetup, c.stdoutTarget, c.unprivileged);
        EXPECT_EQ(run.status, 1) << c.what << "\n" << run.err;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << c.what << "\n" << run.err;
        EXPECT_EQ(run.err.find("trace written to"), std::string::npos) << c.what;
    }
    EXPECT_EQ(readFile(dir_.file("readonly.out")), "old content");
    // Nothing half-written stays behind: no temporary file, no cut-off CSV.
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
        EXPECT_NE(entry.path().filename().string().front(), '.') << entry.path();
    }
    EXPECT_FALSE(std::filesystem::exists(dir_.file("summary.csv")));
}

// A run stopped by SIGINT or SIGTERM at any moment leaves either the earlier
// file or the whole new one, never a part of it, and no temporary file.
TEST_F(OutputFaultTest, InterruptedRunLeavesTheOldFileOrTheWholeNewOne) {
    lintingLog(20000, 0).writeTo(dir_.file("huge.bin"));  // a trace of several MB
    const auto started = std::chrono::steady_clock::now();
    ASSERT_EQ(runHost(dir_, "huge.bin -o complete.json", "", "/dev/null").status, 0);
    const double runSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    const std::string complete = readFile(dir_.file("complete.json"));
    // Stops spread over a whole run, however fast this build is: loading,
    // writing, and renaming into place.
    int interrupted = 0;
    const std::vector<std::pair<double, const char*>> stops = {
        {0.0, "INT"}, {0.1, "TERM"}, {0.25, "INT"}, {0.5, "TERM"}, {0.75, "INT"}, {0.9, "TERM"}};
    for (const auto& [fraction, signalName] : stops) {
        const std::string delay = std::to_string(fraction * runSeconds);
        SCOPED_TRACE(std::string(signalName) + " after " + delay + " s");
        {
            std::ofstream old(dir_.file("trace.json"), std::ios::trunc);
            old << "old content";
        }
        const std::string stop = "& pid=$!; sleep " + delay + "; kill -" + signalName +
                                 " $pid; wait $pid #";
        runHost(dir_, "huge.bin -o trace.json > /dev/null 2>&1 " + stop, "", "/dev/null");
        const std::string trace = readFile(dir_.file("trace.json"));
        EXPECT_TRUE(trace == "old content" || trace == complete) << trace.size() << " bytes";
        if (trace == "old content") ++interrupted;
        for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
            EXPECT_NE(entry.path().filename().string().front(), '.') << entry.path();
        }
    }
    // Without a single run stopped before its end, the test proved nothing.
    EXPECT_GT(interrupted, 0);
}

}  // namespace
}  // namespace profiling
}  // namespace vek
