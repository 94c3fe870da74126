// vek-profile-viewer run as a process: every output mode and exit status.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "ViewerOptions.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using namespace testlog;

struct RunResult {
    int status;
    std::string out;
    std::string err;
};

class ViewerTest : public ::testing::Test {
protected:
    void SetUp() override {
        LogWriter log;
        log.chunk()
            .header(HeaderSpec{}.tool("net-run", "2.0").backendText("Backend 1.2"))
            .message(MessageSpec(kExecute).graph("g0").times(100, 350).withEvents({
                EventSpec::u64("Accelerator", 200).withChildren({
                    EventSpec::u64("conv", 40, 1, 404).withChildren({
                        EventSpec::u64("wait", 5, 1, 5001),
                        EventSpec::u64("bg", 30, 1, 5002),
                        EventSpec::u64("bg wait", 3, 1, 5003),
                        EventSpec::u64("resources", 1, 1, 5004),
                    }),
                }),
                EventSpec::object("Blob", {1, 2, 3}, "blob.bin"),
            }));
        log.writeTo(dir_.file("run.bin"));
    }

    RunResult run(const std::string& arguments) {
        const std::string command = std::string("cd '") + dir_.path() + "' && '" +
                                    VEK_PROFILE_VIEWER_TOOL + "' " + arguments + " > '" +
                                    dir_.file("stdout") + "' 2> '" + dir_.file("stderr") + "'";
        const int status = std::system(command.c_str());
        return RunResult{WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(dir_.file("stdout")),
                         readFile(dir_.file("stderr"))};
    }

    TempDir dir_;
};

TEST_F(ViewerTest, TraceModeWritesTheTraceAndPrintsTheShortSummary) {
    const RunResult result = run("run.bin -o trace.json");
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("Execute Stats (Average):"), std::string::npos);
    EXPECT_EQ(result.out.find("Execute Stats (Min):"), std::string::npos);
    rapidjson::Document trace;
    trace.Parse(readFile(dir_.file("trace.json")).c_str());
    ASSERT_FALSE(trace.HasParseError());
    ASSERT_TRUE(trace["traceEvents"].IsArray());
    EXPECT_EQ(trace["traceEvents"].Size(), 4u);  // Wait and op, each with its background

    // A .gz name gives the same trace, compressed.
    ASSERT_EQ(run("run.bin -o trace.json.gz").status, 0);
    ASSERT_EQ(run("run.bin -o trace.json.gz").status, 0);  // replaced, not appended
    EXPECT_EQ(std::system(("gzip -dc '" + dir_.file("trace.json.gz") + "' > '" +
                           dir_.file("unzipped.json") + "'").c_str()),
              0);
    EXPECT_EQ(readFile(dir_.file("unzipped.json")), readFile(dir_.file("trace.json")));

    // Without -o the trace is named after the log, in the current directory.
    ASSERT_EQ(run("--input=run.bin").status, 0);
    EXPECT_TRUE(std::filesystem::exists(dir_.file("run.trace.json")));
}

TEST_F(ViewerTest, GzipNamesGiveTheSameBytesCompressed) {
    const struct {
        const char* arguments;  // with OUT for the output name
        const char* output;
    } cases[] = {
        {"run.bin -o OUT", "exact.json"},
        {"run.bin --trace-format portable -o OUT", "portable.json"},
        {"empty.bin --trace-format portable -o OUT", "empty.json"},
        {"-m summary run.bin -o OUT", "rows.csv"},
    };
    // A log without op records: one chunk with nothing in it (an empty file
    // is refused as no log at all).
    LogWriter noOps;
    noOps.chunk();
    noOps.writeTo(dir_.file("empty.bin"));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        for (const std::string& output : {std::string(c.output), std::string(c.output) + ".gz"}) {
            std::string arguments = c.arguments;
            arguments.replace(arguments.find("OUT"), 3, output);
            ASSERT_EQ(run(arguments).status, 0) << readFile(dir_.file("stderr"));
        }
        const std::string gz = dir_.file(std::string(c.output) + ".gz");
        EXPECT_EQ(std::system(("gzip -t '" + gz + "'").c_str()), 0);
        EXPECT_EQ(std::system(("zcat '" + gz + "' | cmp -s - '" + dir_.file(c.output) + "'").c_str()),
                  0);
    }
    // A portable trace without slices says so in one line.
    const std::string err = run("empty.bin --trace-format portable -o e.json").err;
    EXPECT_NE(err.find("vek-profile-viewer: the log has no op records to draw: the trace holds "
                       "only the names of its processes and threads\n"),
              std::string::npos)
        << err;
    EXPECT_EQ(run("run.bin --trace-format portable -o p.json").err.find("no op records"),
              std::string::npos);
}

TEST_F(ViewerTest, SummaryModePrintsTheFullReportAndAppendsTheCsv) {
    const RunResult first = run("-m summary -o out.csv run.bin");
    ASSERT_EQ(first.status, 0) << first.err;
    EXPECT_NE(first.out.find("Execute Stats (Max):"), std::string::npos);
    // The base reader's own backend listing, not the trace reader's.
    EXPECT_NE(first.out.find("    Backend (Accelerator): 200 us\n"), std::string::npos);
    const std::string csv = readFile(dir_.file("out.csv"));
    EXPECT_EQ(csv.rfind("input log file location, ", 0), 0u);
    EXPECT_NE(csv.find("100,EXECUTE,250,US,NETRUN,ROOT,Graph 0: g0\n"), std::string::npos);
    ASSERT_EQ(run("--mode summary --output out.csv run.bin").status, 0);
    EXPECT_EQ(readFile(dir_.file("out.csv")), csv + csv);
}

TEST_F(ViewerTest, HeaderModePrintsTheHeaderAlone) {
    const RunResult result = run("--mode=header run.bin");
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out.rfind("Input Log File Location: ", 0), 0u);
    EXPECT_NE(result.out.find("net-run: 2.0\nBackend: Backend 1.2\n"), std::string::npos);
}

TEST_F(ViewerTest, SavesObjectEventsIntoTheNamedDirectory) {
    ASSERT_EQ(run("--save-objects=objects -o trace.json run.bin").status, 0);
    EXPECT_EQ(readFile(dir_.file("objects/blob.bin")), std::string("\x01\x02\x03", 3));
    EXPECT_TRUE(std::filesystem::exists(dir_.file("trace.json")));
    ASSERT_EQ(run("-o trace2.json run.bin").status, 0);
    EXPECT_FALSE(std::filesystem::exists(dir_.file("blob.bin")));  // not without the flag
}

TEST_F(ViewerTest, VisibilityLevelSkipsMessagesAtOrAboveIt) {
    const RunResult result = run("-m summary -v 0 run.bin");
    ASSERT_EQ(result.status, 0);
    EXPECT_EQ(result.out.find("Graph 0"), std::string::npos);
}

TEST_F(ViewerTest, UsageErrorsExitWithTwo) {
    EXPECT_EQ(run("").status, 2);
    EXPECT_EQ(run("--bogus run.bin").status, 2);
    EXPECT_EQ(run("run.bin --mode").status, 2);
    EXPECT_EQ(run("run.bin --mode=pdf").status, 2);
    EXPECT_EQ(run("run.bin -v 300").status, 2);
    const RunResult help = run("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind("Usage: vek-profile-viewer", 0), 0u);
    EXPECT_EQ(run("--version").out, "vek-profile-viewer v0.1.0\n");
}

TEST_F(ViewerTest, RefusedInputOrOutputExitsWithOneAndShowsTheReason) {
    // Each kind of log that is refused has a line of its own, naming the file.
    LogWriter().rawChunk(std::vector<uint8_t>(16, 0xff)).writeTo(dir_.file("corrupt.bin"));
    LogWriter().rawBytes({'{', '"', 'a', '"', ':', '1', '}'}).writeTo(dir_.file("trace.json"));
    LogWriter().writeTo(dir_.file("empty.bin"));
    std::filesystem::create_directory(dir_.file("dir"));
    const struct {
        const char* log;
        const char* message;
    } refusals[] = {
        {"absent.bin", "absent.bin: no such file"},
        {"dir", "dir: is a directory, not a profile log"},
        {"empty.bin", "empty.bin: is empty, not a profile log"},
        {"trace.json", "trace.json: not a profile log: it starts like JSON text, not with a "
                       "chunk length"},
        {"corrupt.bin", "corrupt.bin: not a profile log: its first chunk (16 bytes) fails "
                        "verification"},
    };
    for (const auto& refusal : refusals) {
        const RunResult refused = run(refusal.log);
        EXPECT_EQ(refused.status, 1) << refusal.log;
        EXPECT_NE(refused.err.find(std::string("vek-profile-viewer: ") + refusal.message + "\n"),
                  std::string::npos)
            << refused.err;
    }

    const RunResult unwritable = run("run.bin -o missing/trace.json");
    EXPECT_EQ(unwritable.status, 1);
    EXPECT_NE(unwritable.err.find("Invalid output chrometraceFile: ["), std::string::npos);
    EXPECT_EQ(unwritable.out, "");

    const RunResult noPlugin = run("--reader ./nothing.so run.bin");
    EXPECT_EQ(noPlugin.status, 1);
    EXPECT_NE(noPlugin.err.find("cannot load reader plug-in"), std::string::npos);
}

// A log cut short is refused with the place it breaks; --salvage reports on
// the whole chunks before it exactly as on a log that ends there.
TEST_F(ViewerTest, SalvageReportsOnTheWholeChunksOfACutLog) {
    const std::string whole = readFile(dir_.file("run.bin"));
    std::vector<uint8_t> cut(whole.begin(), whole.end());
    const std::vector<uint8_t> next = lengthPrefixed(buildChunk(
        ChunkSpec{}.message(MessageSpec(kExecute).graph("g0").times(400, 900))));
    cut.insert(cut.end(), next.begin(), next.begin() + 30);
    LogWriter().rawBytes(cut).writeTo(dir_.file("cut.bin"));
    const std::string place = "chunk 1 at byte offset " + std::to_string(whole.size()) +
                              ": cut short: its length field announces " +
                              std::to_string(next.size() - 4) + " bytes, only 26 are there";

    const RunResult refused = run("cut.bin -o refused.json");
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("cannot read the profile log cut.bin: " + place +
                               "; --salvage reports on the 1 chunk and 1 message before it\n"),
              std::string::npos)
        << refused.err;
    EXPECT_FALSE(std::filesystem::exists(dir_.file("refused.json")));

    const RunResult salvaged = run("--salvage cut.bin -o salvaged.json");
    ASSERT_EQ(salvaged.status, 0) << salvaged.err;
    EXPECT_NE(salvaged.err.find("warning: cut.bin: " + place +
                                "; the report covers only the 1 chunk and 1 message before it\n"),
              std::string::npos)
        << salvaged.err;
    LogWriter().rawBytes({whole.begin(), whole.end()}).writeTo(dir_.file("cut.bin"));
    const RunResult trimmed = run("cut.bin -o trimmed.json");
    ASSERT_EQ(trimmed.status, 0);
    EXPECT_EQ(salvaged.out, trimmed.out);
    EXPECT_EQ(readFile(dir_.file("salvaged.json")), readFile(dir_.file("trimmed.json")));
}

// Object names that leave the object directory are refused, each with a
// line naming the event and the name; the report is still written whole.
TEST_F(ViewerTest, ObjectFilesStayInTheirDirectoryUnlessAllowedOut) {
    namespace fs = std::filesystem;
    fs::create_directories(dir_.file("objects"));
    fs::create_directories(dir_.file("outside"));
    fs::create_directory_symlink("../outside", dir_.file("objects/link"));
    const std::vector<std::string> hostile = {dir_.file("outside/absolute.bin"),
                                              "../outside/parent.bin", "link/through-link.bin"};
    std::vector<EventSpec> events = {EventSpec::object("Kept", {7}, "kept.bin")};
    for (const std::string& name : hostile) events.push_back(EventSpec::object("Evil", {6}, name));
    LogWriter log;
    log.chunk().message(MessageSpec(kExecute).graph("g0").times(0, 10).withEvents(events));
    log.writeTo(dir_.file("hostile.bin"));

    const RunResult confined = run("--save-objects=objects -o trace.json hostile.bin");
    EXPECT_EQ(confined.status, 1);
    EXPECT_NE(confined.err.find("Object event [Evil]: file name [" + hostile[0] +
                                "] is an absolute path; not saved"),
              std::string::npos)
        << confined.err;
    EXPECT_NE(confined.err.find("[../outside/parent.bin] has a \"..\" component"),
              std::string::npos);
    EXPECT_NE(confined.err.find("[link/through-link.bin] resolves outside the object directory"),
              std::string::npos);
    EXPECT_TRUE(fs::is_empty(dir_.file("outside")));
    EXPECT_EQ(readFile(dir_.file("objects/kept.bin")), "\x07");
    EXPECT_NE(readFile(dir_.file("trace.json")).find("\"traceEvents\""), std::string::npos);

    const RunResult allowed = run(
        "--save-objects=objects --allow-object-paths-outside-dir -o trace.json hostile.bin");
    EXPECT_EQ(allowed.status, 0) << allowed.err;
    for (const char* name : {"absolute.bin", "parent.bin", "through-link.bin"}) {
        EXPECT_EQ(readFile(dir_.file(std::string("outside/") + name)), "\x06") << name;
    }
}

TEST_F(ViewerTest, FullDeviceIsAFailureNotASuccess) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
    EXPECT_EQ(run("-m summary -o /dev/full run.bin").status, 1);
    EXPECT_EQ(run("-o /dev/full run.bin").status, 1);
}

TEST_F(ViewerTest, LogLevelControlsTheDiagnosticsShown) {
    EXPECT_EQ(run("-m header run.bin").err, "");
    const RunResult debug = run("-m header --log-level debug run.bin");
    EXPECT_NE(debug.err.find("debug: profiling::VekProfileLogReader reached EOF!"),
              std::string::npos);
    EXPECT_EQ(run("--log-level none absent.bin").err.find("Invalid or nonexistent"),
              std::string::npos);
}

// A log of graph g0 whose execution took `netRun` us, with one op record,
// and of graph g1 when asked.
void writeRunLog(const std::string& path, uint64_t netRun, bool secondGraph = false) {
    LogWriter log;
    ChunkSpec& chunk = log.chunk();
    for (const char* graph : {"g0", "g1"}) {
        if (std::string(graph) == "g1" && !secondGraph) break;
        chunk.message(MessageSpec(kExecute).graph(graph).times(100, 100 + netRun).withEvents({
            EventSpec::u64("Accelerator", netRun - 10).withChildren({
                EventSpec::u64("conv", netRun / 2, 1, 404)})}));
    }
    log.writeTo(path);
}

TEST_F(ViewerTest, DiffExitsWithThreeWhenAGraphGotSlowerThanAllowed) {
    writeRunLog(dir_.file("base.bin"), 250);
    writeRunLog(dir_.file("new.bin"), 300, true);  // g0 20 % slower, g1 added
    const struct {
        const char* options;
        int status;
    } cases[] = {{"", 0}, {"--fail-above 10", 3}, {"--fail-above 19.9", 3},
                 {"--fail-above 20", 0}, {"--fail-above 10 --threshold 50", 3}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.options);
        const RunResult result = run(std::string("-m diff base.bin new.bin ") + c.options);
        EXPECT_EQ(result.status, c.status) << result.err;
        EXPECT_NE(result.out.find("Graph g1 (added)"), std::string::npos);
        EXPECT_EQ(result.err.find("graph g0: NetRun average slower") != std::string::npos,
                  c.status == 3);
    }
    ASSERT_EQ(run("-m diff --format json -o diff.json base.bin new.bin").status, 0);
    rapidjson::Document diff;
    diff.Parse(readFile(dir_.file("diff.json")).c_str());
    ASSERT_FALSE(diff.HasParseError());
    EXPECT_EQ(diff["graphs"][0]["netrun_delta_us"].GetInt64(), 50);
    EXPECT_STREQ(diff["graphs"][1]["status"].GetString(), "added");
}

TEST_F(ViewerTest, TopAndDiffRefuseLogsWithoutOpRecordsAndCorruptOnes) {
    LogWriter noOps;
    noOps.chunk().message(MessageSpec(kExecute).graph("g0").times(0, 9).withEvents({
        EventSpec::u64("Accelerator", 8)}));
    noOps.writeTo(dir_.file("noops.bin"));
    LogWriter corrupt;
    corrupt.rawChunk(std::vector<uint8_t>(16, 0xff));
    corrupt.writeTo(dir_.file("corrupt.bin"));
    const struct {
        const char* arguments;
        int status;
        const char* message;
    } cases[] = {
        {"-m top noops.bin", 1, "no op records in noops.bin"},
        {"-m diff run.bin noops.bin", 1, "no op records in noops.bin"},
        {"-m top corrupt.bin", 1, "Corrupted flatbuffer binary stream"},
        {"-m diff corrupt.bin run.bin", 1, "Corrupted flatbuffer binary stream"},
        {"-m top --graph g9 run.bin", 1, "no graph g9 in run.bin"},
        {"-m diff run.bin", 2, "mode diff needs 2 logs"},
        {"-m top --threshold 3 run.bin", 2, "--threshold does not apply to mode top"},
        {"-m top --sort size run.bin", 2, "--sort"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        const RunResult result = run(c.arguments);
        EXPECT_EQ(result.status, c.status);
        EXPECT_NE(result.err.find(c.message), std::string::npos) << result.err;
        EXPECT_EQ(result.out, "");
    }
}

TEST_F(ViewerTest, HtmlModeWritesTheReportBesideTheLogsName) {
    const RunResult result = run("-m html run.bin");
    ASSERT_EQ(result.status, 0) << result.err;
    const std::string html = readFile(dir_.file("run.html"));
    EXPECT_EQ(html.rfind("<!DOCTYPE html>", 0), 0u);
    EXPECT_NE(html.find("<h2>Graph g0</h2>"), std::string::npos);
    EXPECT_NE(html.find("<title>conv [PQA]: 40 us at 5 us</title>"), std::string::npos);
    EXPECT_NE(result.err.find("report written to "), std::string::npos);
    EXPECT_EQ(run("-m html -o report.html corrupt-or-absent.bin").status, 1);
    EXPECT_FALSE(std::filesystem::exists(dir_.file("report.html")));
}

TEST(ViewerOptionsTest, ParsesLongShortInlineAndPositionalForms) {
    using viewer::OutputMode;
    const auto parsed = viewer::parseViewerOptions(
        {"-m", "summary", "--output=x.csv", "-v", "-3", "--log-level", "warning",
         "--save-objects", "--reader=/p.so", "--salvage", "--allow-object-paths-outside-dir",
         "log.bin"});
    ASSERT_TRUE(parsed.options) << parsed.text;
    EXPECT_EQ(parsed.options->mode, OutputMode::Summary);
    EXPECT_EQ(parsed.options->outputPath, "x.csv");
    EXPECT_EQ(parsed.options->visibilityLevel, -3);
    EXPECT_EQ(parsed.options->logLevel, 2);
    EXPECT_TRUE(parsed.options->saveObjects);
    EXPECT_EQ(parsed.options->objectDirectory, "");
    EXPECT_EQ(parsed.options->readerPath, "/p.so");
    EXPECT_TRUE(parsed.options->salvage);
    EXPECT_TRUE(parsed.options->allowObjectPathsOutsideDir);
    EXPECT_EQ(parsed.options->logPaths, std::vector<std::string>{"log.bin"});

    const auto defaults = viewer::parseViewerOptions({"log.bin"});
    ASSERT_TRUE(defaults.options);
    EXPECT_EQ(defaults.options->mode, OutputMode::Trace);
    EXPECT_EQ(defaults.options->visibilityLevel, 127);
    EXPECT_EQ(defaults.options->logLevel, 1);
    EXPECT_FALSE(defaults.options->salvage);
    EXPECT_FALSE(defaults.options->allowObjectPathsOutsideDir);

    // The views' options; --graph takes one name at a time.
    const auto top = viewer::parseViewerOptions({"-m", "top", "--graph", "g1", "--graph", "g2",
                                                 "log.bin", "--limit", "0", "--sort", "wait",
                                                 "--format", "json"});
    ASSERT_TRUE(top.options) << top.text;
    EXPECT_EQ(top.options->view.graphs, (std::vector<std::string>{"g1", "g2"}));
    EXPECT_EQ(top.options->view.limit, 0u);
    EXPECT_EQ(top.options->view.order, TopOrder::Wait);
    EXPECT_EQ(top.options->view.format, ViewFormat::Json);
    EXPECT_EQ(top.options->logPaths, std::vector<std::string>{"log.bin"});

    EXPECT_FALSE(viewer::parseViewerOptions({"a.bin", "b.bin"}).options);
    EXPECT_FALSE(viewer::parseViewerOptions({"a.bin", "--log-level", "6"}).options);
    EXPECT_EQ(viewer::defaultTracePath("/logs/run1.bin"), "run1.trace.json");
}

}  // namespace
}  // namespace profiling
}  // namespace vek
