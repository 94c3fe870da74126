// A run that dies mid-write leaves a log whose last chunk is cut. Cut the
// sample log at every byte of its last chunk: the scan must name the place,
// the valid prefix must be exactly the chunks before it, and a salvage load
// must report what a load of that prefix reports.
#include <unistd.h>

#include <cstdio>
#include <sstream>

#include "log/LogScan.h"
#include "reliability/Reliability.h"

namespace vek::profiling {
namespace {

using namespace testlog;

// The trace and the short summary of the chrome-trace reader.
std::string reportOf(const std::string& logPath, bool salvage) {
    VekProfileLogReaderChrometrace reader(logPath, VisibilityLevel(127));
    setSalvageLoad(&reader, salvage);
    EXPECT_TRUE(reader.loadLog(false));
    std::ostringstream trace;
    EXPECT_TRUE(writeTrace(&reader, trace, trace, TraceFormat::Exact));
    return trace.str();
}

// What check reports of the whole log, and the prefix trim writes, from one scan.
struct Scan {
    LogScanSummary summary;
    std::string prefix;
    size_t lastChunkBytes = 0;  // the last valid chunk, framed
};

Scan scanFile(const std::string& path) {
    Scan scan;
    LogScanCallbacks callbacks;
    callbacks.prefixChunk = [&scan](const ChunkBuffer& body) {
        const std::vector<uint8_t> framed = lengthPrefixed(body);
        scan.prefix.append(framed.begin(), framed.end());
        scan.lastChunkBytes = framed.size();
        return true;
    };
    std::FILE* file = std::fopen(path.c_str(), "rb");
    scan.summary = scanLog(file, ScanExtent::kWholeLog, callbacks);
    std::fclose(file);
    return scan;
}

TEST(CutLog, EveryCutOfTheLastChunkIsFoundTrimmedAndSalvaged) {
    const std::string sample = readFile(std::string(VEK_SAMPLE_DIR) + "/linting_sample.log");
    TempDir dir;
    const std::string log = dir.file("run.log");
    LogWriter().rawBytes({sample.begin(), sample.end()}).writeTo(log);
    const Scan whole = scanFile(log);
    ASSERT_EQ(whole.summary.problems, 0u);
    ASSERT_GE(whole.summary.validChunks, 2u);
    ASSERT_EQ(whole.prefix, sample);
    const std::string allButLast = sample.substr(0, sample.size() - whole.lastChunkBytes);
    LogWriter().rawBytes({allButLast.begin(), allButLast.end()}).writeTo(log);
    LogCapture quiet(0);
    const std::string expected = reportOf(log, false);

    LogWriter().rawBytes({sample.begin(), sample.end()}).writeTo(log);
    for (size_t cut = sample.size() - 1; cut > allButLast.size(); --cut) {  // shorter and shorter, in place
        SCOPED_TRACE("cut at " + std::to_string(cut));
        ASSERT_EQ(truncate(log.c_str(), static_cast<off_t>(cut)), 0);
        const Scan check = scanFile(log);
        ASSERT_EQ(check.summary.problems, 1u);
        EXPECT_EQ(check.summary.firstProblem.chunkIndex, whole.summary.validChunks - 1);
        EXPECT_EQ(check.summary.firstProblem.byteOffset, allButLast.size());
        EXPECT_EQ(check.summary.firstProblem.kind,
                  cut - allButLast.size() < 4 ? ChunkProblemKind::TrailingBytes : ChunkProblemKind::CutChunk);
        ASSERT_EQ(check.prefix, allButLast);
        ASSERT_EQ(reportOf(log, true), expected);
    }
}

}  // namespace
}  // namespace vek::profiling
