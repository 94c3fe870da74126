#include "log/FlatBufferReaderUtil.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "support/LogCapture.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using testlog::buildChunk;
using testlog::ChunkSpec;
using testlog::HeaderSpec;
using testlog::LogCapture;
using testlog::MessageSpec;

const char* const kCorrupt = "Corrupted flatbuffer binary stream";

std::shared_ptr<ChunkBuffer> bufferOf(std::vector<uint8_t> bytes) {
    return std::make_shared<ChunkBuffer>(std::move(bytes));
}

// The smallest possible chunk: root offset 4 to an empty table whose soffset
// (-4) points forward to a vtable of 4 bytes that lists no fields and gives
// the table's size as 4.
std::vector<uint8_t> smallestChunk(uint32_t rootOffset = 4) {
    return {static_cast<uint8_t>(rootOffset), static_cast<uint8_t>(rootOffset >> 8),
            static_cast<uint8_t>(rootOffset >> 16), static_cast<uint8_t>(rootOffset >> 24),
            0xfc, 0xff, 0xff, 0xff,   // table: vtable at 4 - (-4) = 8
            0x04, 0x00, 0x04, 0x00};  // vtable: 4 bytes, object 4 bytes
}

TEST(FlatBufferReaderUtilTest, HandsOutMessagesInOrderAndKeepsTheCounterAtTheEnd) {
    LogCapture capture;
    FlatBufferReaderUtil stream;
    ChunkSpec chunk;
    chunk.message(MessageSpec(1).graph("a")).message(MessageSpec(2).graph("b"));
    // The caller keeps the buffer alive while its messages are read.
    const auto buffer = bufferOf(buildChunk(chunk));
    ASSERT_TRUE(stream.init(buffer));
    for (const char* graph : {"a", "b"}) {
        const fb::LogMessage* message = stream.nextMessage();
        ASSERT_NE(message, nullptr);
        EXPECT_EQ(message->graphName()->str(), graph);
    }
    EXPECT_EQ(stream.nextMessage(), nullptr);
    EXPECT_EQ(stream.nextMessage(), nullptr);
    EXPECT_EQ(capture.count(
                  "profiling::FlatBufferReaderUtil no more messages! (Message Counter: 2)"),
              2u);

    // A chunk without a message vector yields nothing, from a counter of 0.
    ChunkSpec headerOnly;
    headerOnly.header(HeaderSpec{});
    const auto headerBuffer = bufferOf(buildChunk(headerOnly));
    ASSERT_TRUE(stream.init(headerBuffer));
    EXPECT_EQ(stream.nextMessage(), nullptr);
    EXPECT_TRUE(capture.contains(
        "profiling::FlatBufferReaderUtil no more messages! (Message Counter: 0)", 5));
}

TEST(FlatBufferReaderUtilTest, FirstHeaderIsKeptAcrossChunks) {
    auto chunkWithTool = [](const std::string& tool) {
        ChunkSpec chunk;
        chunk.header(HeaderSpec{}.tool(tool, "1.0")).message(MessageSpec(1).graph("g"));
        return bufferOf(buildChunk(chunk));
    };
    FlatBufferReaderUtil stream;
    auto first = chunkWithTool("first");
    auto second = chunkWithTool("second");
    ASSERT_TRUE(stream.init(first));
    ASSERT_TRUE(stream.init(second));
    ASSERT_NE(stream.header(), nullptr);
    EXPECT_EQ(stream.header()->toolName()->str(), "first");
    // The root and the messages do follow the new chunk.
    EXPECT_EQ(stream.root(), fb::GetLogChunk(second->data()));
}

TEST(FlatBufferReaderUtilTest, TwelveBytesCanDoAndRefusedChunksChangeNothing) {
    std::vector<uint8_t> eleven = smallestChunk();
    eleven.pop_back();
    auto missingField = [](bool stamp) {
        MessageSpec broken(1);
        broken.omitStamp = stamp;
        broken.omitTiming = !stamp;
        ChunkSpec chunk;
        chunk.header(HeaderSpec{}).message(MessageSpec(1).graph("ok")).message(broken);
        return buildChunk(chunk);
    };
    const std::vector<std::vector<uint8_t>> refused = {
        {},
        eleven,
        smallestChunk(0),
        smallestChunk(0x80000000u),  // negative as a signed offset
        smallestChunk(0xfffffffcu),
        smallestChunk(12),           // == size
        smallestChunk(11),           // in range, but no room for a table
        missingField(true),          // a message without its required stamp
        missingField(false),         // or timing
    };
    LogCapture capture;
    FlatBufferReaderUtil stream;
    // Twelve bytes are enough when the root verifies.
    const auto smallest = bufferOf(smallestChunk());
    ASSERT_TRUE(stream.init(smallest));
    EXPECT_EQ(capture.count(kCorrupt), 0u);
    EXPECT_EQ(stream.nextMessage(), nullptr);
    const fb::LogChunk* root = stream.root();
    ASSERT_NE(root, nullptr);
    for (size_t i = 0; i < refused.size(); ++i) {
        EXPECT_FALSE(stream.init(bufferOf(refused[i]))) << "case " << i;
        EXPECT_EQ(stream.root(), root) << "case " << i;
        EXPECT_EQ(stream.header(), nullptr) << "case " << i;
    }
    EXPECT_FALSE(stream.init(nullptr));
    EXPECT_EQ(capture.count(kCorrupt), refused.size() + 1);
    EXPECT_TRUE(capture.contains(kCorrupt, 1));
}

}  // namespace
}  // namespace profiling
}  // namespace vek
