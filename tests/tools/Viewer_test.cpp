// vek-profile-viewer run as a process: its modes, output files, exit statuses and messages.
#include <gtest/gtest.h>

#include <filesystem>

#include "tools/ToolRun.h"

namespace vek::profiling {
namespace {

using namespace testlog;
namespace fs = std::filesystem;

class ViewerTest : public ::testing::Test {
protected:
    void SetUp() override {
        LogWriter log;
        log.chunk()
            .header(HeaderSpec{}.tool("net-run", "2.0").backendText("Backend 1.2"))
            .message(MessageSpec(kExecute).graph("g0").times(100, 350).withEvents({
                EventSpec::u64("Accelerator", 200).withChildren({EventSpec::u64("conv", 40, 1, 404).withChildren({
                    EventSpec::u64("wait", 5, 1, 5001), EventSpec::u64("bg", 30, 1, 5002),
                    EventSpec::u64("bg wait", 3, 1, 5003), EventSpec::u64("resources", 1, 1, 5004)})}),
                EventSpec::object("Blob", {1, 2, 3}, "blob.bin")}));
        log.writeTo(dir_.file("run.bin"));
        writeLog("noops.bin",
                 {MessageSpec(kExecute).graph("g0").times(0, 9).withEvents({EventSpec::u64("Accelerator", 8)})});
        writeLog("blank.bin", {});  // one chunk with nothing in it
        LogWriter().rawChunk(std::vector<uint8_t>(16, 0xff)).writeTo(dir_.file("corrupt.bin"));
        LogWriter().rawBytes({'{', '"', 'a', '"', ':', '1', '}'}).writeTo(dir_.file("trace.json"));
        LogWriter().writeTo(dir_.file("empty.bin"));
        fs::create_directory(dir_.file("dir"));
    }

    void writeLog(const std::string& name, const std::vector<MessageSpec>& messages) {
        LogWriter log;
        for (const MessageSpec& message : messages) log.chunk().message(message);
        if (messages.empty()) log.chunk();
        log.writeTo(dir_.file(name));
    }
    testtools::ToolRun run(const std::string& arguments) { return testtools::runTool(dir_, VEK_PROFILE_VIEWER_TOOL, arguments); }
    bool contains(const std::string& file, const char* part) { return readFile(dir_.file(file)).find(part) != std::string::npos; }

    TempDir dir_;
};

TEST_F(ViewerTest, ExitStatusesAndMessages) {
    // nullptr: not looked at; "": must be empty; else must be found. `absent`: in neither stream.
    const struct {
        const char* arguments;
        int status;
        const char *out = nullptr, *err = nullptr, *absent = nullptr;
    } cases[] = {
        // Usage errors: 2.
        {"", 2}, {"--bogus run.bin", 2}, {"run.bin --mode", 2}, {"run.bin --mode=pdf", 2}, {"run.bin -v 300", 2},
        {"run.bin --log-level 6", 2},
        {"-m diff run.bin", 2, "", "mode diff needs 2 logs"},
        {"-m top --threshold 3 run.bin", 2, "", "--threshold does not apply to mode top"},
        {"-m top --sort size run.bin", 2, "", "--sort"},
        {"--help", 0, "Usage: vek-profile-viewer"},
        {"--version", 0, "vek-profile-viewer v0.1.0\n"},
        // What each mode prints.
        {"run.bin -o t.json", 0, "Execute Stats (Average):", "trace written to", "Execute Stats (Min):"},
        {"-m summary run.bin", 0, "    Backend (Accelerator): 200 us\n"},
        {"-m summary -v 0 run.bin", 0, "Execute Stats", nullptr, "Graph 0"},
        {"--mode=header run.bin", 0, "net-run: 2.0\nBackend: Backend 1.2\n", ""},
        {"-m top --graph g0 --limit 1 --sort wait run.bin", 0, "Graph g0", ""},
        {"-m header --log-level debug run.bin", 0, nullptr, "debug: profiling::VekProfileLogReader reached EOF!"},
        {"blank.bin --trace-format portable -o e.json", 0, nullptr, "vek-profile-viewer: the log has no op "
         "records to draw: the trace holds only the names of its processes and threads\n"},
        {"run.bin --trace-format portable -o p.json", 0, nullptr, nullptr, "no op records"},
        {"-m html run.bin", 0, nullptr, "report written to "},
        // Refused logs and outputs: 1, with a line naming the file.
        {"absent.bin", 1, "", "vek-profile-viewer: absent.bin: no such file\n"},
        {"--log-level none absent.bin", 1, nullptr, nullptr, "Invalid or nonexistent"},
        {"dir", 1, "", "vek-profile-viewer: dir: is a directory, not a profile log\n"},
        {"empty.bin", 1, "", "vek-profile-viewer: empty.bin: is empty, not a profile log\n"},
        {"trace.json", 1, "", "vek-profile-viewer: trace.json: not a profile log: it starts like JSON text, not with "
         "a chunk length\n"},
        {"corrupt.bin", 1, "", "vek-profile-viewer: corrupt.bin: not a profile log: its first chunk (16 bytes) fails "
         "verification\n"},
        {"run.bin -o missing/trace.json", 1, "", "Invalid output chrometraceFile: ["},
        {"-o /dev/full run.bin", 1}, {"-m summary -o /dev/full run.bin", 1}, {"-m html -o report.html absent.bin", 1},
        {"--reader ./nothing.so run.bin", 1, nullptr, "cannot load reader plug-in"},
        {"-m top noops.bin", 1, "", "no op records in noops.bin"},
        {"-m diff run.bin noops.bin", 1, "", "no op records in noops.bin"},
        {"-m top corrupt.bin", 1, "", "Corrupted flatbuffer binary stream"},
        {"-m diff corrupt.bin run.bin", 1, "", "Corrupted flatbuffer binary stream"},
        {"-m top --graph g9 run.bin", 1, "", "no graph g9 in run.bin"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        const testtools::ToolRun result = run(c.arguments);
        EXPECT_EQ(result.status, c.status) << result.err;
        for (const auto& [expected, actual] : {std::pair(c.out, &result.out), std::pair(c.err, &result.err)}) {
            EXPECT_TRUE(!expected || (*expected ? actual->find(expected) != std::string::npos : actual->empty()))
                << *actual;
        }
        EXPECT_TRUE(!c.absent || (result.out + result.err).find(c.absent) == std::string::npos);
    }
    EXPECT_FALSE(fs::exists(dir_.file("report.html")));
    EXPECT_EQ(readFile(dir_.file("run.html")).rfind("<!DOCTYPE html>", 0), 0u);  // named after the log
    EXPECT_TRUE(contains("run.html", "<title>conv [PQA]: 40 us at 5 us</title>"));
}

// A .gz name compresses every output to the plain one's bytes; the CSV is appended to, with its header.
TEST_F(ViewerTest, TraceAndCsvFilesPlainOrCompressed) {
    for (const auto& [arguments, output] : {std::pair("run.bin -o ", "exact.json"),
             {"run.bin --trace-format portable -o ", "portable.json"},
             {"blank.bin --trace-format portable -o ", "blank.json"}, {"-m summary run.bin -o ", "rows.csv"}}) {
        SCOPED_TRACE(output);
        const std::string gz = dir_.file(std::string(output) + ".gz");
        ASSERT_EQ(run(arguments + std::string(output)).status, 0);
        ASSERT_EQ(run(arguments + gz).status, 0);
        EXPECT_EQ(std::system(("gzip -t '" + gz + "' && zcat '" + gz + "' | cmp -s - '" + dir_.file(output) + "'")
                                  .c_str()), 0);
    }
    ASSERT_EQ(run("--input=run.bin").status, 0);  // named after the log, in the current directory
    EXPECT_TRUE(contains("run.trace.json", "\"traceEvents\""));
    const std::string csv = readFile(dir_.file("rows.csv"));
    EXPECT_EQ(csv.rfind("input log file location, ", 0), 0u);
    ASSERT_EQ(run("--mode summary --output rows.csv run.bin").status, 0);
    EXPECT_EQ(readFile(dir_.file("rows.csv")), csv + csv);
}

// A cut log is refused with the place; --salvage reports on the chunks before it as on a log ending there.
TEST_F(ViewerTest, SalvageReportsOnTheWholeChunksOfACutLog) {
    const std::string whole = readFile(dir_.file("run.bin"));
    std::vector<uint8_t> cut(whole.begin(), whole.end());
    const std::vector<uint8_t> next =
        lengthPrefixed(buildChunk(ChunkSpec{}.message(MessageSpec(kExecute).graph("g0").times(400, 900))));
    cut.insert(cut.end(), next.begin(), next.begin() + 30);
    LogWriter().rawBytes(cut).writeTo(dir_.file("cut.bin"));
    const std::string place = "cut.bin: chunk 1 at byte offset " + std::to_string(whole.size()) +
                              ": cut short: its length field announces " + std::to_string(next.size() - 4) +
                              " bytes, only 26 are there; ";

    const testtools::ToolRun refused = run("cut.bin -o refused.json");
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("cannot read the profile log " + place +
                               "--salvage reports on the 1 chunk and 1 message before it\n"), std::string::npos)
        << refused.err;
    EXPECT_FALSE(fs::exists(dir_.file("refused.json")));
    const testtools::ToolRun salvaged = run("--salvage cut.bin -o salvaged.json");
    ASSERT_EQ(salvaged.status, 0) << salvaged.err;
    EXPECT_NE(salvaged.err.find("warning: " + place + "the report covers only the 1 chunk and 1 message before it\n"),
              std::string::npos) << salvaged.err;
    LogWriter().rawBytes({whole.begin(), whole.end()}).writeTo(dir_.file("cut.bin"));
    const testtools::ToolRun trimmed = run("cut.bin -o trimmed.json");
    EXPECT_EQ(salvaged.out, trimmed.out);
    EXPECT_EQ(readFile(dir_.file("salvaged.json")), readFile(dir_.file("trimmed.json")));
}

// Object files go into their directory, only with the flag; names that leave it are refused, the report kept.
TEST_F(ViewerTest, ObjectFilesStayInTheirDirectoryUnlessAllowedOut) {
    fs::create_directories(dir_.file("objects"));
    fs::create_directories(dir_.file("outside"));
    fs::create_directory_symlink("../outside", dir_.file("objects/link"));
    const std::string hostile[] = {dir_.file("outside/absolute.bin"), "../outside/parent.bin", "link/through-link.bin"};
    std::vector<EventSpec> events = {EventSpec::object("Kept", {7}, "kept.bin")};
    for (const std::string& name : hostile) events.push_back(EventSpec::object("Evil", {6}, name));
    writeLog("hostile.bin", {MessageSpec(kExecute).graph("g0").times(0, 10).withEvents(events)});

    ASSERT_EQ(run("-o trace.json hostile.bin").status, 0);
    EXPECT_FALSE(fs::exists(dir_.file("kept.bin")));  // not without the flag
    const testtools::ToolRun confined = run("--save-objects=objects -o trace.json hostile.bin");
    EXPECT_EQ(confined.status, 1);
    for (const std::string& message : {"Object event [Evil]: file name [" + hostile[0] + "] is an absolute path",
                                       "[" + hostile[1] + "] has a \"..\" component",
                                       "[" + hostile[2] + "] resolves outside the object directory"}) {
        EXPECT_NE(confined.err.find(message), std::string::npos) << confined.err;
    }
    EXPECT_TRUE(fs::is_empty(dir_.file("outside")));
    EXPECT_EQ(readFile(dir_.file("objects/kept.bin")), "\x07");
    EXPECT_TRUE(contains("trace.json", "\"traceEvents\""));
    EXPECT_EQ(run("--save-objects=objects --allow-object-paths-outside-dir -o trace.json hostile.bin").status, 0);
    for (const char* name : {"absolute.bin", "parent.bin", "through-link.bin"})
        EXPECT_EQ(readFile(dir_.file(std::string("outside/") + name)), "\x06") << name;
}

TEST_F(ViewerTest, DiffExitsWithThreeWhenAGraphGotSlowerThanAllowed) {
    const auto slower = [](const char* graph) {  // than run.bin: NetRun 250 -> 300 us, 20 %
        return MessageSpec(kExecute).graph(graph).times(100, 400).withEvents(
            {EventSpec::u64("Accelerator", 290).withChildren({EventSpec::u64("conv", 150, 1, 404)})});
    };
    writeLog("new.bin", {slower("g0"), slower("g1")});
    for (const auto& [options, status] : {std::pair("", 0), {"--fail-above 10", 3}, {"--fail-above 19.9", 3},
                                          {"--fail-above 20", 0}, {"--fail-above 10 --threshold 50", 3}}) {
        SCOPED_TRACE(options);
        const testtools::ToolRun result = run(std::string("-m diff run.bin new.bin ") + options);
        EXPECT_EQ(result.status, status) << result.err;
        EXPECT_NE(result.out.find("Graph g1 (added)"), std::string::npos);
        EXPECT_EQ(result.err.find("graph g0: NetRun average slower") != std::string::npos, status == 3);
    }
    ASSERT_EQ(run("-m diff --format json -o diff.json run.bin new.bin").status, 0);
    EXPECT_TRUE(contains("diff.json", "\"netrun_delta_us\": 50,") && contains("diff.json", "\"status\": \"added\""));
}

}  // namespace
}  // namespace vek::profiling
