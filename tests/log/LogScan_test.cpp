// The scan that finds where a log breaks, and the stream that verifies one
// chunk and hands out its messages.
#include <gtest/gtest.h>

#include "log/FlatBufferReaderUtil.h"
#include "log/LogScan.h"
#include "support/LogCapture.h"
#include "support/LogWriter.h"
#include "support/MemoryFile.h"

namespace vek::profiling {
namespace {

using namespace testlog;

const char* const kCorrupt = "Corrupted flatbuffer binary stream";

struct Scanned {
    LogScanSummary summary;
    std::vector<ChunkProblem> problems;
    std::vector<uint8_t> prefix;  // the valid prefix, framed again
};

Scanned scan(const std::vector<uint8_t>& bytes) {
    Scanned result;
    LogScanCallbacks callbacks;
    callbacks.problem = [&](const ChunkProblem& problem) { result.problems.push_back(problem); };
    callbacks.prefixChunk = [&](const ChunkBuffer& body) {
        const std::vector<uint8_t> framed = lengthPrefixed(body);
        result.prefix.insert(result.prefix.end(), framed.begin(), framed.end());
        return true;
    };
    result.summary = scanLog(MemoryFile(std::string(bytes.begin(), bytes.end())).get(), ScanExtent::kWholeLog, callbacks);
    return result;
}

LogWriter chunks(size_t count) {
    LogWriter log;
    for (size_t i = 0; i < count; ++i) {
        log.chunk().message(MessageSpec(kExecute).graph("g").times(0, 10))
            .message(MessageSpec(kDeinit).times(0, 10));
    }
    return log;
}

std::vector<uint8_t> operator+(std::vector<uint8_t> left, const std::vector<uint8_t>& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

const std::vector<uint8_t> kGarbageChunk = lengthPrefixed(std::vector<uint8_t>(16, 0));

TEST(LogScan, FindsEveryProblemWithItsPlaceAndWhatCameBefore) {
    using Kind = ChunkProblemKind;
    const std::vector<uint8_t> two = chunks(2).bytes();
    const uint64_t end = two.size();
    std::vector<uint8_t> cutThird = chunks(3).bytes();
    cutThird.resize(cutThird.size() - 5);
    struct Expected { Kind kind; uint64_t index, offset, chunksBefore, messagesBefore; };
    const struct {
        const char* name;
        std::vector<uint8_t> bytes;
        std::vector<Expected> problems;
        uint64_t prefixChunks, validChunks;
    } cases[] = {
        {"whole", two, {}, 2, 2},
        {"empty", {}, {}, 0, 0},
        {"trailing bytes", two + std::vector<uint8_t>{1, 2}, {{Kind::TrailingBytes, 2, end, 2, 4}},
         2, 2},
        {"cut last chunk", cutThird, {{Kind::CutChunk, 2, end, 2, 4}}, 2, 2},
        {"corrupt chunks are passed over",
         chunks(1).bytes() + kGarbageChunk + chunks(1).bytes() + kGarbageChunk,
         {{Kind::InvalidChunk, 1, end / 2, 1, 2}, {Kind::InvalidChunk, 3, end + 20, 2, 4}}, 1, 2},
        {"cut first chunk", std::vector<uint8_t>(two.begin(), two.begin() + 40),
         {{Kind::CutChunk, 0, 0, 0, 0}}, 0, 0},
        {"JSON text", {'{', '\n', ' ', ' ', '"', 'a', '"', ':', '1', '}'},
         {{Kind::NotAProfileLog, 0, 0, 0, 0}}, 0, 0},
        {"corrupt first chunk", kGarbageChunk + two, {{Kind::NotAProfileLog, 0, 0, 0, 0}}, 0, 2},
        {"too short for a length", {7, 0}, {{Kind::NotAProfileLog, 0, 0, 0, 0}}, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Scanned result = scan(c.bytes);
        ASSERT_EQ(result.problems.size(), c.problems.size());
        EXPECT_EQ(result.summary.problems, c.problems.size());
        for (size_t i = 0; i < c.problems.size(); ++i) {
            const ChunkProblem& problem = result.problems[i];
            EXPECT_EQ(problem.kind, c.problems[i].kind) << problem.reason;
            EXPECT_EQ(problem.chunkIndex, c.problems[i].index);
            EXPECT_EQ(problem.byteOffset, c.problems[i].offset);
            EXPECT_EQ(problem.chunksBefore, c.problems[i].chunksBefore);
            EXPECT_EQ(problem.messagesBefore, c.problems[i].messagesBefore);
            EXPECT_FALSE(problem.reason.empty());
        }
        EXPECT_EQ(result.summary.prefixChunks, c.prefixChunks);
        EXPECT_EQ(result.summary.validChunks, c.validChunks);
        EXPECT_EQ(result.summary.prefixBytes, result.prefix.size());  // the log's first bytes
        EXPECT_TRUE(std::equal(result.prefix.begin(), result.prefix.end(), c.bytes.begin()));
    }
}

// The smallest chunk: root offset 4 to an empty table whose soffset (-4) points
// to a vtable of 4 bytes that lists no fields and gives the table's size as 4.
std::vector<uint8_t> smallestChunk(uint32_t rootOffset = 4) {
    return {static_cast<uint8_t>(rootOffset), static_cast<uint8_t>(rootOffset >> 8),
            static_cast<uint8_t>(rootOffset >> 16), static_cast<uint8_t>(rootOffset >> 24),
            0xfc, 0xff, 0xff, 0xff,   // table: vtable at 4 - (-4) = 8
            0x04, 0x00, 0x04, 0x00};  // vtable: 4 bytes, object 4 bytes
}

TEST(FlatBufferReaderUtilTest, TwelveBytesCanDoAndRefusedChunksChangeNothing) {
    std::vector<uint8_t> eleven = smallestChunk();
    eleven.pop_back();
    auto missingField = [](bool stamp) {
        MessageSpec broken(1);
        broken.omitStamp = stamp;
        broken.omitTiming = !stamp;
        return buildChunk(ChunkSpec{}.header(HeaderSpec{}).message(MessageSpec(1).graph("ok")).message(broken));
    };
    const std::vector<std::vector<uint8_t>> refused = {
        {}, eleven, smallestChunk(0), smallestChunk(0xfffffffcu),
        smallestChunk(0x80000000u),  // negative as a signed offset
        smallestChunk(12),           // == size
        smallestChunk(11),           // in range, but no room for a table
        missingField(true), missingField(false)};  // a message without its stamp, or its timing
    LogCapture capture;
    FlatBufferReaderUtil stream;
    const auto smallest = std::make_shared<ChunkBuffer>(smallestChunk());  // twelve bytes can do
    ASSERT_TRUE(stream.init(smallest));
    EXPECT_EQ(capture.count(kCorrupt), 0u);
    EXPECT_EQ(stream.nextMessage(), nullptr);
    const fb::LogChunk* root = stream.root();
    ASSERT_NE(root, nullptr);
    for (size_t i = 0; i < refused.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_FALSE(stream.init(std::make_shared<ChunkBuffer>(refused[i])));
        EXPECT_EQ(stream.root(), root);
        EXPECT_EQ(stream.header(), nullptr);
    }
    EXPECT_FALSE(stream.init(nullptr));
    EXPECT_EQ(capture.count(kCorrupt), refused.size() + 1);
    EXPECT_TRUE(capture.contains(kCorrupt, 1));
}

}  // namespace
}  // namespace vek::profiling
