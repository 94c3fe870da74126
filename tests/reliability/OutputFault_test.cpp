// The host turns every output it cannot write (read-only, full, cut short, interrupted) into a
// message and exit status 1, never a cut-off file presented as success.
#include <sys/wait.h>

#include <chrono>
#include <iostream>

#include "reliability/Reliability.h"

namespace vek::profiling {
namespace {

namespace fs = std::filesystem;
const std::string kAsNobody = "setpriv --reuid=65534 --regid=65534 --clear-groups ";

// `ops` op records and, unless `objectBytes` is 0, an object event saved as blob.bin.
void writeLintingLog(const std::string& path, size_t ops, size_t objectBytes) {
    std::vector<EventSpec> events = {EventSpec::u64("Accelerator", 200).withChildren({})};
    for (size_t i = 0; i < ops; ++i) events[0].subEvents->push_back(reliability::loggedOp("op_" + std::to_string(i)));
    if (objectBytes > 0) events.push_back(EventSpec::object("Blob", std::vector<uint8_t>(objectBytes, 7), "blob.bin"));
    LogWriter log;
    log.chunk().header(HeaderSpec{}.tool("net-run", "2.0")).message(MessageSpec(kExecute).graph("g0").times(100, 350).withEvents(events));
    log.writeTo(path);
}

class OutputFaultTest : public ::testing::Test {
protected:
    void SetUp() override {
        // Nobody must find the logs but not write the read-only output.
        fs::permissions(dir_.path(), fs::perms(0755));
        writeLintingLog(dir_.file("run.bin"), 2, 64 * 1024);
        writeLintingLog(dir_.file("big.bin"), 400, 0);  // a trace of about 100 kB
        std::ofstream(dir_.file("readonly.out")) << "old content";
        fs::permissions(dir_.file("readonly.out"), fs::perms(0444));
    }

    int runHost(const std::string& arguments, const std::string& shellSetup = "", bool asNobody = false) {
        const std::string command = "cd '" + dir_.path() + "' && exec > /dev/null && " + shellSetup +
                                    viewer(asNobody && geteuid() == 0) + " " + arguments + " 2> '" + dir_.file("stderr") + "'";
        const int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    // Nobody may not enter the build tree, so for it the viewer and plug-in are copied here.
    std::string viewer(bool asNobody) {
        if (!asNobody) return std::string("'") + VEK_PROFILE_VIEWER_TOOL + "'";
        const fs::path bin = fs::path(dir_.path()) / "bin";
        fs::create_directories(bin);
        fs::permissions(bin, fs::perms(0755));
        fs::copy_file(VEK_PROFILE_VIEWER_TOOL, bin / "vek-profile-viewer", fs::copy_options::overwrite_existing);
        fs::copy_file(VEK_PLUGIN_PATH, bin / fs::path(VEK_PLUGIN_PATH).filename(), fs::copy_options::overwrite_existing);
        return "LD_LIBRARY_PATH='" + bin.string() + "' " + kAsNobody + "'" + (bin / "vek-profile-viewer").string() + "'";
    }

    void expectNoHiddenFiles() {  // no temporary file stays behind
        for (const auto& entry : fs::directory_iterator(dir_.path())) {
            EXPECT_NE(entry.path().filename().string().front(), '.') << entry.path();
        }
    }

    TempDir dir_;
};

TEST_F(OutputFaultTest, HostExitsWithOneOnEveryFailedOrShortWrite) {
    if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
    // Root writes read-only files, so setpriv runs the host as nobody, who must reach the test directory.
    const bool readOnlyHolds =
        geteuid() != 0 || std::system((kAsNobody + "test -r '" + dir_.file("run.bin") + "' 2> /dev/null").c_str()) == 0;
    // A 16 kB file size limit, its signal ignored, so that a longer write comes back short.
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
        if (c.asNobody && !readOnlyHolds) {  // said, so that the run is not mistaken for one that proved it
            std::cout << "[ SKIPPED  ] " << c.what << ": the unprivileged user (setpriv, uid 65534) cannot reach "
                      << "the test directory\n";
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

// A run stopped by SIGINT or SIGTERM at any moment leaves the earlier file or the whole new one.
TEST_F(OutputFaultTest, InterruptedRunLeavesTheOldFileOrTheWholeNewOne) {
    writeLintingLog(dir_.file("huge.bin"), 20000, 0);  // a trace of several MB
    const auto started = std::chrono::steady_clock::now();
    ASSERT_EQ(runHost("huge.bin -o complete.json"), 0);
    const double runSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    const std::string complete = readFile(dir_.file("complete.json"));
    int interrupted = 0;  // stops spread over a whole run (load, write, rename), however fast this build is
    const std::pair<double, const char*> stops[] = {{0.0, "INT"}, {0.1, "TERM"}, {0.25, "INT"},
                                                    {0.5, "TERM"}, {0.75, "INT"}, {0.9, "TERM"}};
    for (const auto& [fraction, signalName] : stops) {
        const std::string delay = std::to_string(fraction * runSeconds);
        SCOPED_TRACE(std::string(signalName) + " after " + delay + " s");
        std::ofstream(dir_.file("trace.json")) << "old content";
        runHost("huge.bin -o trace.json 2>&1 & pid=$!; sleep " + delay + "; kill -" + signalName + " $pid; wait $pid #");
        const std::string trace = readFile(dir_.file("trace.json"));
        EXPECT_TRUE(trace == "old content" || trace == complete) << trace.size() << " bytes";
        interrupted += trace == "old content";
        expectNoHiddenFiles();
    }
    EXPECT_GT(interrupted, 0);  // else the test proved nothing
}

}  // namespace
}  // namespace vek::profiling
