// A summaries-only load gives every report but the CSV export byte for byte
// as the full load does: on 500 seeded random logs and every log the tests write.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <sstream>

#include "reader/VekProfileLogReaderChrometrace.h"
#include "support/LogCapture.h"
#include "support/LogWriter.h"

namespace vek::profiling {
namespace {

using namespace testlog;
namespace fs = std::filesystem;

// Writes the bytes as they are (LogWriter::writeTo would show them to the hook).
void writeLog(const std::vector<uint8_t>& bytes, const std::string& path) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    ASSERT_TRUE(out.good()) << path;
}

// Everything a host sees of one load, by name: the chrome-trace reader's traces,
// short summary and op figures, or the base reader's full text summary; object
// files, which the logs name into work/objects.
std::map<std::string, std::string> outputsOf(const std::string& log, LoadScope scope, bool chrome,
                                             int8_t level, bool loadFlag, const TempDir& work) {
    const auto visibility = static_cast<VisibilityLevel>(level);
    const std::unique_ptr<VekProfileLogReader> reader =
        chrome ? std::make_unique<VekProfileLogReaderChrometrace>(log, visibility)
               : std::make_unique<VekProfileLogReader>(log, visibility);
    EXPECT_TRUE(setLoadScope(reader.get(), scope));
    std::map<std::string, std::string> out;
    const std::string trace = work.file("trace.json");
    std::ostringstream printed, portable, summary, view;
    std::streambuf* const standardOutput = std::cout.rdbuf(printed.rdbuf());
    out["loaded"] = std::to_string(reader->loadLog(loadFlag));
    out["written"] = std::to_string(reader->writeOutput(chrome ? trace : std::string()));
    std::cout.rdbuf(standardOutput);
    out["printed"] = printed.str();
    if (chrome) {
        if (fs::exists(trace)) out["trace file"] = readFile(trace);
        fs::remove(trace);
        out["portable"] = std::to_string(writeTrace(reader.get(), portable, summary, TraceFormat::Portable)) +
                          portable.str() + summary.str();
        LogFigures figures;
        TopViewOptions everyOp;
        everyOp.limit = 0;
        everyOp.format = ViewFormat::Json;
        if (collectLogFigures(reader.get(), figures)) writeTopView(figures, everyOp, view);
        out["top view"] = view.str();
    }
    out["header"] = reader->printHeader();
    out["diagnostics"] = reader->loaderDiagnostics;
    const std::string objects = work.file("objects");
    for (const auto& entry : fs::directory_iterator(objects)) {
        out["object " + entry.path().filename().string()] = readFile(entry.path());
    }
    fs::remove_all(objects);
    fs::create_directory(objects);
    return out;
}

void expectSameOutputs(const std::string& log, int8_t level, bool loadFlag, const TempDir& work) {
    for (const bool chrome : {true, false}) {
        SCOPED_TRACE(chrome ? "chrome-trace reader" : "base reader");
        const auto full = outputsOf(log, LoadScope::Full, chrome, level, loadFlag, work);
        const auto streamed = outputsOf(log, LoadScope::SummariesOnly, chrome, level, loadFlag, work);
        EXPECT_EQ(streamed.size(), full.size());
        for (const auto& [what, text] : full) {
            EXPECT_EQ(streamed.count(what) != 0 ? streamed.at(what) : "(none)", text) << what;
        }
    }
}

// What the summaries are sensitive to: shared, repeated and missing op names,
// ties on the longest and shortest call, calls that take no time, are hidden
// or name no graph; object, queue-wait, init events; corrupt or cut ends.
class RandomLog {
public:
    RandomLog(uint64_t seed, std::string objectDirectory) : random_(seed), objects_(std::move(objectDirectory)) {}

    LogWriter build() {
        LogWriter log;
        ChunkSpec* chunk = &log.chunk().header(HeaderSpec{}.tool("net-run", "2.0").backendText("Backend 1"));
        chunk->message(call(kLibLoad).withEvents({EventSpec::u64("dlopen", 90)})).message(call(kContextCreate));
        const size_t graphs = 1 + pick(5);
        for (size_t g = 0; g < graphs; ++g) {
            MessageSpec finalize = call(chance(80) ? kFinalize : kFinalize2).graph(graphName(g));
            chunk->message(finalize.withEvents(chance(50) ? std::vector<EventSpec>{initEvent()} : std::vector<EventSpec>{}));
        }
        const bool roundTrips = chance(40);
        const size_t calls = pick(40);
        for (size_t i = 0; i < calls; ++i) {
            if (chance(15)) chunk = &log.chunk();
            chunk->message(perGraphCall(graphs, roundTrips));
        }
        if (chance(30)) chunk->message(call(kContextGetBinarySectionSize));
        chunk->message(call(kNetRun).withEvents({EventSpec::u64("count", calls, 4), EventSpec::u64("duration", 1000 + calls)}))
            .message(call(kDeinit).withEvents({EventSpec::u64("release", 12)}));
        const uint64_t end = pick(8);
        if (end == 0) log.rawChunk({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13});
        if (end == 1) {
            log.chunk().message(call(kExecute).graph(graphName(0)).withEvents(callEvents(true, false)));
            MessageSpec corrupt(kExecute);
            corrupt.omitTiming = true;
            log.chunk().message(std::move(corrupt));
        }
        if (end == 2) log.rawBytes({7, 0});  // a length field cut short ends the log
        return log;
    }

private:
    uint64_t pick(uint64_t count) { return random_() % count; }
    bool chance(uint64_t percent) { return pick(100) < percent; }

    static std::string graphName(size_t index) { return "graph_" + std::to_string(index); }
    MessageSpec call(uint8_t methodType) {
        // Few distinct durations, so that maxima and minima tie; 0 is common.
        static const uint64_t kDurations[] = {0, 0, 5, 7, 7, 40, 40, 300};
        const uint64_t duration = chance(20) ? pick(1000) : kDurations[pick(8)];
        const MessageSpec message = MessageSpec(methodType).times(clock_, clock_ + duration);
        clock_ += duration + 1 + pick(5);
        return message;
    }

    EventSpec initEvent() {
        return EventSpec::u64("init", pick(100)).id(100).withChildren({EventSpec::u64("weights", pick(50))});
    }

    EventSpec linted(const std::string& name) {
        EventSpec op = EventSpec::u64(name, pick(60), 1, 404);
        std::vector<EventSpec> children = {
            EventSpec::u64("wait", pick(3) == 0 ? 0 : pick(9), 1, 5001),
            EventSpec::u64("background", pick(30), 1, 5002).withChildren({EventSpec::u64(chance(50) ? "dma" : "bias", 0, 1, 5005)}),
            EventSpec::u64("wait background", pick(4), 1, 5003).withChildren({EventSpec::u64("fetch", 0, 1, 5006)}),
            EventSpec::u64("resources", 1 + pick(7), 6, 5004)};
        // Now and then a record the trace refuses.
        if (chance(3)) children.erase(children.begin() + static_cast<long>(pick(4)));
        return op.withChildren(std::move(children));
    }

    std::vector<EventSpec> callEvents(bool execution, bool roundTrips) {
        static const char* const kOps[] = {"conv", "add", "relu", "pool", "fc", "softmax"};
        std::vector<EventSpec> ops;
        for (const char* op : kOps) {
            if (chance(80)) ops.push_back(linted(op));
            if (chance(5)) ops.push_back(linted(op));  // the same name twice
        }
        if (chance(10)) std::shuffle(ops.begin(), ops.end(), random_);
        std::vector<EventSpec> events;
        events.push_back(EventSpec::u64("Accelerator", pick(500), 1, 1).withChildren(std::move(ops)));
        if (chance(70)) events.push_back(EventSpec::u64("Host overhead", pick(40)));
        // Values of other types are summed as raw bits once merged.
        if (chance(15)) events.push_back(EventSpec::i64("delta", 4 - int64_t(pick(9))));
        if (chance(10)) events.push_back(EventSpec::f64("ratio", 0.25 * pick(8)));
        if (chance(10)) events.push_back(EventSpec::u64("debug", pick(9), 1, 9003));
        if (chance(10)) events.push_back(EventSpec::object("tensor", {uint8_t(pick(256)), 1}, objects_ + "/tensor.bin"));
        if (chance(8)) events.push_back(initEvent());
        // A text value is summed, and listed by the chrome trace, as its address:
        // one text event per log, in a call that listing does not show.
        if (!textUsed_ && !execution && chance(10)) {
            textUsed_ = true;
            events.push_back(EventSpec::text("note", "seen once"));
        }
        if (execution && roundTrips) {
            const uint64_t waits = chance(90) ? 1 : pick(3);
            for (uint64_t i = 0; i < waits; ++i) {
                EventSpec wait = EventSpec::u64("queue wait", pick(20), 1, 405);
                (chance(50) ? events : *events[0].subEvents).push_back(std::move(wait));
            }
        }
        return events;
    }

    MessageSpec perGraphCall(size_t graphs, bool roundTrips) {
        static const uint8_t kTypes[] = {kExecute, kExecute, kExecute, kExecute, kApplyBinarySection, kApplyBinarySection2, kFinalizeAfterTensorUpdates};
        uint8_t type = kTypes[pick(7)];
        if (type == kExecute && roundTrips) type = kExecuteRoundTrip;
        const bool execution = type == kExecute || type == kExecuteRoundTrip;
        MessageSpec message = call(type).withEvents(callEvents(execution, roundTrips));
        if (!chance(3)) message.graph(graphName(pick(graphs)));
        if (chance(5)) message.visible(static_cast<int8_t>(chance(50) ? 10 : 127));
        return message;
    }

    std::mt19937_64 random_;
    std::string objects_;
    uint64_t clock_ = 1000;
    bool textUsed_ = false;
};

// 500 seeds in five tests of 100, so that a sanitized build stays within each test's time limit.
class SeededLogsTest : public ::testing::TestWithParam<uint64_t> {};

TEST_P(SeededLogsTest, GiveWhatTheFullLoadGives) {
    TempDir work;
    fs::create_directory(work.file("objects"));
    const std::string log = work.file("run.log");
    for (uint64_t seed = GetParam() * 100; seed < (GetParam() + 1) * 100; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        writeLog(RandomLog(seed, work.file("objects")).build().bytes(), log);
        expectSameOutputs(log, seed % 3 == 0 ? 10 : 127, seed % 2 == 0, work);
        if (HasFailure()) break;  // one seed's differences are enough to read
    }
}

INSTANTIATE_TEST_SUITE_P(SummariesOnlyLoad, SeededLogsTest, ::testing::Range<uint64_t>(0, 5));

TEST(SummariesOnlyLoadTest, IsChosenBeforeLoadingAndRefusesTheCsvExport) {
    TempDir dir;
    LogWriter log;
    log.chunk().message(MessageSpec(kExecute).graph("g0").times(10, 30));
    writeLog(log.bytes(), dir.file("run.log"));
    VekProfileLogReader reader(dir.file("run.log"), static_cast<VisibilityLevel>(127));
    LogCapture capture;
    EXPECT_FALSE(setLoadScope(nullptr, LoadScope::SummariesOnly));
    ASSERT_TRUE(setLoadScope(&reader, LoadScope::SummariesOnly));
    ASSERT_TRUE(reader.loadLog(false));
    EXPECT_FALSE(setLoadScope(&reader, LoadScope::Full)) << "the model is loaded already";
    EXPECT_TRUE(reader.executions.empty()) << "no call is kept";
    std::ostringstream report, csv;
    EXPECT_FALSE(writeSummary(&reader, report, &csv));
    EXPECT_FALSE(reader.writeOutput(dir.file("calls.csv")));
    EXPECT_FALSE(fs::exists(dir.file("calls.csv")));
    EXPECT_EQ(capture.count("The CSV export lists every call: load the log in full for it."), 2u);
    EXPECT_TRUE(writeSummary(&reader, report, nullptr)) << "the text summary alone is fine";
}

// Every log LogWriter writes in this process, compared once the tests are done
// (their loggers and standard output are free then). Left out: logs of
// megabytes (too slow sanitized) and logs with a text value, which the reports
// show as its address.
std::mutex writtenLock;
std::vector<std::pair<std::string, std::vector<uint8_t>>> writtenLogs;

class EveryWrittenLog : public ::testing::Environment {
public:
    void TearDown() override {
        TempDir work;
        fs::create_directory(work.file("objects"));
        const std::string path = work.file("written.log");
        for (const auto& [test, bytes] : writtenLogs) {
            SCOPED_TRACE("a log written by " + test);
            writeLog(bytes, path);
            VekProfileLogReader probe(path, VisibilityLevel(127));
            probe.loadLog(false);
            if (!probe.internedStrings.empty()) continue;
            for (const int8_t level : {int8_t{10}, int8_t{127}}) expectSameOutputs(path, level, false, work);
        }
        writtenLogs.clear();
    }
};

[[maybe_unused]] const bool kWatchEveryWrittenLog = [] {
    ::testing::AddGlobalTestEnvironment(new EveryWrittenLog);
    setLogWrittenHook([](const std::vector<uint8_t>& log) {
        if (log.size() > (size_t{1} << 20)) return;
        const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
        std::lock_guard<std::mutex> lock(writtenLock);
        writtenLogs.emplace_back(test != nullptr ? test->name() : "", log);
    });
    return true;
}();

}  // namespace
}  // namespace vek::profiling
