// A run that dies mid-write leaves a log whose last chunk is cut. Cut the
// sample log at every byte of its last chunk: the scan must name the place,
// the valid prefix must be exactly the chunks before it, and a salvage load
// must report what a load of that prefix reports.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "log/LogScan.h"
#include "reader/VekProfileLogReaderChrometrace.h"
#include "support/LogCapture.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using namespace testlog;

const std::string kSampleLog = std::string(VEK_SAMPLE_DIR) + "/linting_sample.log";

// The trace and the short summary of the chrome-trace reader.
std::string reportOf(const std::string& logPath, bool salvage) {
    VekProfileLogReaderChrometrace reader(logPath, VisibilityLevel(127));
    setSalvageLoad(&reader, salvage);
    EXPECT_TRUE(reader.loadLog(false));
    std::ostringstream trace;
    std::ostringstream summary;
    EXPECT_TRUE(writeTrace(&reader, trace, summary, TraceFormat::Exact));
    return trace.str() + summary.str();
}

LogScanSummary scanFile(const std::string& path, ScanExtent extent, std::string* prefix) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    LogScanCallbacks callbacks;
    callbacks.prefixChunk = [prefix](const ChunkBuffer& body) {
        const std::vector<uint8_t> framed = lengthPrefixed(body);
        if (prefix != nullptr) prefix->append(framed.begin(), framed.end());
        return true;
    };
    const LogScanSummary summary = scanLog(file, extent, callbacks);
    std::fclose(file);
    return summary;
}

TEST(CutLog, EveryCutOfTheLastChunkIsFoundTrimmedAndSalvaged) {
    const std::string sample = readFile(kSampleLog);
    TempDir dir;
    const std::string log = dir.file("run.log");
    // Where the last chunk starts.
    LogWriter().rawBytes({sample.begin(), sample.end()}).writeTo(log);
    const LogScanSummary whole = scanFile(log, ScanExtent::kWholeLog, nullptr);
    ASSERT_EQ(whole.problems, 0u);
    ASSERT_GE(whole.validChunks, 2u);
    std::string allButLast;
    for (uint64_t offset = 0, index = 0; index + 1 < whole.validChunks; ++index) {
        uint32_t length = 0;
        for (int byte = 3; byte >= 0; --byte) {
            length = length << 8 | static_cast<uint8_t>(sample[offset + byte]);
        }
        offset += 4 + length;
        allButLast = sample.substr(0, offset);
    }
    LogWriter().rawBytes({allButLast.begin(), allButLast.end()}).writeTo(log);
    LogCapture quiet(0);
    const std::string expected = reportOf(log, false);

    LogWriter().rawBytes({sample.begin(), sample.end()}).writeTo(log);
    // Cut shorter and shorter, in place.
    for (size_t cut = sample.size() - 1; cut > allButLast.size(); --cut) {
        SCOPED_TRACE("cut at " + std::to_string(cut));
        ASSERT_EQ(truncate(log.c_str(), static_cast<off_t>(cut)), 0);
        // What check reports, and the prefix trim writes, from one scan.
        std::string trimmed;
        const LogScanSummary check = scanFile(log, ScanExtent::kWholeLog, &trimmed);
        ASSERT_EQ(check.problems, 1u);
        EXPECT_EQ(check.firstProblem.chunkIndex, whole.validChunks - 1);
        EXPECT_EQ(check.firstProblem.byteOffset, allButLast.size());
        EXPECT_EQ(check.firstProblem.kind, cut - allButLast.size() < 4
                                               ? ChunkProblemKind::TrailingBytes
                                               : ChunkProblemKind::CutChunk);
        ASSERT_EQ(trimmed, allButLast);
        ASSERT_EQ(reportOf(log, true), expected);
    }
}

}  // namespace
}  // namespace profiling
}  // namespace vek
