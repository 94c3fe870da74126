// Outputs that cannot be written: a read-only file, a full device, a file
// size limit that cuts a write short, standard output that fails, a run
// stopped by a signal. The readers refuse with their messages; the host
// turns every failed or short write into a message and exit status 1, never
// a cut-off file presented as success.
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <iostream>

#include "reliability/Reliability.h"

namespace vek::profiling {
namespace {

namespace fs = std::filesystem;
using namespace testlog;

const std::string kAsNobody = "setpriv --reuid=65534 --regid=65534 --clear-groups ";

// A linting log with `ops` op records and, when `objectBytes` is non-zero,
// an object event of that many bytes saved as blob.bin.
void writeLintingLog(const std::string& path, size_t ops, size_t objectBytes) {
    std::vector<EventSpec> events = {EventSpec::u64("Accelerator", 200).withChildren({})};
    for (size_t i = 0; i < ops; ++i) events[0].subEvents->push_back(reliability::loggedOp("op_" + std::to_string(i)));
    if (objectBytes > 0) events.push_back(EventSpec::object("Blob", std::vector<uint8_t>(objectBytes, 7), "blob.bin"));
    LogWriter log;
    log.chunk().header(HeaderSpec{}.tool("net-run", "2.0")).message(MessageSpec(kExecute).graph("g0").times(100, 350).withEvents(events));
    log.writeTo(path);
}

void writeText(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::trunc) << text; }

class OutputFaultTest : public ::testing::Test {
protected:
    void SetUp() override {
        // Open to an unprivileged user, who must find the logs but not write the read-only output.
        fs::permissions(dir_.path(), fs::perms(0755));
        writeLintingLog(dir_.file("run.bin"), 2, 64 * 1024);
        writeLintingLog(dir_.file("big.bin"), 400, 0);  // a trace of about 100 kB
        writeText(dir_.file("readonly.out"), "old content");
        chmod(dir_.file("readonly.out").c_str(), 0444);
    }

    // Runs vek-profile-viewer in the test directory, its standard output to
    // /dev/null unless `shellSetup` (limits, signal dispositions, redirections)
    // says otherwise; returns the exit status.
    int runHost(const std::string& arguments, const std::string& shellSetup = "", bool asNobody = false) {
        const std::string command = "cd '" + dir_.path() + "' && exec > /dev/null && " + shellSetup +
                                    viewer(asNobody && geteuid() == 0) + " " + arguments + " 2> '" + dir_.file("stderr") + "'";
        const int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    // Nobody may not be able to enter the build tree (a checkout in a private
    // home or container directory), so for it the viewer and the plug-in are
    // copied into the test's own world-readable directory.
    std::string viewer(bool asNobody) {
        if (!asNobody) return std::string("'") + VEK_PROFILE_VIEWER_TOOL + "'";
        const fs::path bin = fs::path(dir_.path()) / "bin";
        fs::create_directories(bin);
        fs::permissions(bin, fs::perms(0755));
        fs::copy_file(VEK_PROFILE_VIEWER_TOOL, bin / "vek-profile-viewer", fs::copy_options::overwrite_existing);
        fs::copy_file(VEK_PLUGIN_PATH, bin / fs::path(VEK_PLUGIN_PATH).filename(), fs::copy_options::overwrite_existing);
        return "LD_LIBRARY_PATH='" + bin.string() + "' " + kAsNobody + "'" + (bin / "vek-profile-viewer").string() + "'";
    }

    // No temporary (hidden) file stays behind.
    void expectNoHiddenFiles() {
        for (const auto& entry : fs::directory_iterator(dir_.path())) {
            EXPECT_NE(entry.path().filename().string().front(), '.') << entry.path();
        }
    }

    TempDir dir_;
};

TEST_F(OutputFaultTest, ReadersRefuseAReadOnlyFileAndRaiseAFullDevice) {
    const std::string path = dir_.file("readonly.out");
    VekProfileLogReaderChrometrace chrome(dir_.file("run.bin"), VisibilityLevel(10));
    VekProfileLogReader summary(dir_.file("run.bin"), VisibilityLevel(10));
    ASSERT_TRUE(chrome.loadLog(false) && summary.loadLog(false));
    LogCapture capture;
    testing::internal::CaptureStdout();
    if (geteuid() == 0) setfsuid(65534);  // root writes read-only files; nobody does not
    const bool traced = chrome.writeOutput(path), summarised = summary.writeOutput(path);
    if (geteuid() == 0) setfsuid(0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_FALSE(traced);
    EXPECT_FALSE(summarised);
    EXPECT_TRUE(capture.contains("Invalid output chrometraceFile: [" + path + "]", 1));
    EXPECT_TRUE(capture.contains("Invalid output file: [" + path + "]", 1));
    EXPECT_EQ(readFile(path), "old content");
    // The CSV's stream failure reaches the caller, which reports it.
    if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
    testing::internal::CaptureStdout();
    EXPECT_THROW(summary.writeOutput("/dev/full"), std::ios_base::failure);
    testing::internal::GetCapturedStdout();
}

TEST_F(OutputFaultTest, HostExitsWithOneOnEveryFailedOrShortWrite) {
    if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
    // Root writes read-only files, so setpriv runs the host as nobody, who
    // must be able to enter the test directory (a TMPDIR inside a private
    // directory is not).
    const bool readOnlyHolds =
        geteuid() != 0 || std::system((kAsNobody + "test -r '" + dir_.file("run.bin") + "' 2> /dev/null").c_str()) == 0;
    // A file size limit of 16 kB, with the signal that would kill the writer
    // ignored, so that a longer write comes back short.
    const std::string smallFiles = "ulimit -f 16 && trap '' XFSZ && ", fullStdout = "exec > /dev/full && ";
    const std::string trace = "Invalid output chrometraceFile: [", csv = "Invalid output file: [",
                      stdoutFailed = "writing to standard output failed";
    const struct {
        const char* what;
        std::string shellSetup, arguments;
        bool asNobody;
        std::string message;  // expected on standard error
    } cases[] = {
        {"read-only trace", "", "run.bin -o readonly.out", true, trace},
        {"read-only CSV", "", "-m summary run.bin -o readonly.out", true, csv},
        {"CSV in a missing directory", "", "-m summary run.bin -o missing/out.csv", false, csv},
        {"trace cut short", smallFiles, "big.bin -o trace.json", false, trace},
        {"CSV cut short", smallFiles, "-m summary big.bin -o summary.csv", false, csv},
        {"object file cut short", smallFiles, "run.bin --save-objects -o trace.json", false,
         "Invalid output fileName: [blob.bin]"},
        {"summary to a full device", fullStdout, "run.bin -o trace.json", false, stdoutFailed},
        {"full summary to a full device", fullStdout, "-m summary run.bin", false, stdoutFailed},
        {"header to a full device", fullStdout, "-m header run.bin", false, stdoutFailed},
    };
    for (const auto& c : cases) {
        if (c.asNobody && !readOnlyHolds) {
            // Said in the output, so that a run without the case is not
            // mistaken for one that proved it.
            std::cout << "[ SKIPPED  ] " << c.what << ": the unprivileged user (setpriv, uid "
                      << "65534) cannot reach the test directory\n";
            continue;
        }
        SCOPED_TRACE(c.what);
        EXPECT_EQ(runHost(c.arguments, c.shellSetup, c.asNobody), 1);
        const std::string err = readFile(dir_.file("stderr"));
        EXPECT_NE(err.find(c.message), std::string::npos) << err;
        EXPECT_EQ(err.find("trace written to"), std::string::npos) << err;
    }
    EXPECT_EQ(readFile(dir_.file("readonly.out")), "old content");
    expectNoHiddenFiles();
    EXPECT_FALSE(fs::exists(dir_.file("summary.csv")));  // no cut-off CSV either
}

// A run stopped by SIGINT or SIGTERM at any moment leaves either the earlier
// file or the whole new one, never a part of it, and no temporary file.
TEST_F(OutputFaultTest, InterruptedRunLeavesTheOldFileOrTheWholeNewOne) {
    writeLintingLog(dir_.file("huge.bin"), 20000, 0);  // a trace of several MB
    const auto started = std::chrono::steady_clock::now();
    ASSERT_EQ(runHost("huge.bin -o complete.json"), 0);
    const double runSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    const std::string complete = readFile(dir_.file("complete.json"));
    // Stops spread over a whole run, however fast this build is: loading,
    // writing, and renaming into place.
    int interrupted = 0;
    const std::pair<double, const char*> stops[] = {{0.0, "INT"}, {0.1, "TERM"}, {0.25, "INT"},
                                                    {0.5, "TERM"}, {0.75, "INT"}, {0.9, "TERM"}};
    for (const auto& [fraction, signalName] : stops) {
        const std::string delay = std::to_string(fraction * runSeconds);
        SCOPED_TRACE(std::string(signalName) + " after " + delay + " s");
        writeText(dir_.file("trace.json"), "old content");
        runHost("huge.bin -o trace.json 2>&1 & pid=$!; sleep " + delay + "; kill -" + signalName + " $pid; wait $pid #");
        const std::string trace = readFile(dir_.file("trace.json"));
        EXPECT_TRUE(trace == "old content" || trace == complete) << trace.size() << " bytes";
        interrupted += trace == "old content";
        expectNoHiddenFiles();
    }
    // Without a single run stopped before its end, the test proved nothing.
    EXPECT_GT(interrupted, 0);
}

}  // namespace
}  // namespace vek::profiling
