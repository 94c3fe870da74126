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

std::shared_ptr<ChunkBuffer> chunkWithTool(const std::string& tool) {
    ChunkSpec chunk;
    chunk.header(HeaderSpec{}.tool(tool, "1.0")).message(MessageSpec(1).graph("g"));
    return bufferOf(buildChunk(chunk));
}

// The smallest possible chunk: root offset 4 to an empty table whose soffset
// (-4) points forward to a vtable of 4 bytes that lists no fields and gives
// the table's size as 4.
std::vector<uint8_t> smallestChunk() {
    return {0x04, 0x00, 0x00, 0x00,   // root offset -> table at 4
            0xfc, 0xff, 0xff, 0xff,   // table: vtable at 4 - (-4) = 8
            0x04, 0x00, 0x04, 0x00};  // vtable: 4 bytes, object 4 bytes
}

TEST(FlatBufferReaderUtilTest, ChunkWithoutMessageVectorYieldsNothing) {
    LogCapture capture;
    FlatBufferReaderUtil stream;
    ChunkSpec chunk;
    chunk.header(HeaderSpec{});
    ASSERT_TRUE(stream.init(bufferOf(buildChunk(chunk))));
    EXPECT_NE(stream.header(), nullptr);
    EXPECT_EQ(stream.nextMessage(), nullptr);
    EXPECT_TRUE(capture.contains(
        "profiling::FlatBufferReaderUtil no more messages! (Message Counter: 0)", 5));
}

TEST(FlatBufferReaderUtilTest, HandsOutMessagesInOrderAndKeepsTheCounterAtTheEnd) {
    LogCapture capture;
    FlatBufferReaderUtil stream;
    ChunkSpec chunk;
    chunk.message(MessageSpec(1).graph("a")).message(MessageSpec(2).graph("b"));
    auto buffer = bufferOf(buildChunk(chunk));
    ASSERT_TRUE(stream.init(buffer));
    const fb::LogMessage* first = stream.nextMessage();
    const fb::LogMessage* second = stream.nextMessage();
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(first->graphName()->str(), "a");
    EXPECT_EQ(second->graphName()->str(), "b");
    EXPECT_EQ(stream.nextMessage(), nullptr);
    EXPECT_EQ(stream.nextMessage(), nullptr);
    EXPECT_EQ(capture.count(
                  "profiling::FlatBufferReaderUtil no more messages! (Message Counter: 2)"),
              2u);
}

TEST(FlatBufferReaderUtilTest, FirstHeaderIsKeptAcrossChunks) {
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

TEST(FlatBufferReaderUtilTest, HeaderIsTakenFromALaterChunkWhenTheFirstHasNone) {
    FlatBufferReaderUtil stream;
    ChunkSpec bare;
    bare.message(MessageSpec(1).graph("g"));
    auto first = bufferOf(buildChunk(bare));
    auto second = chunkWithTool("late");
    ASSERT_TRUE(stream.init(first));
    EXPECT_EQ(stream.header(), nullptr);
    ASSERT_TRUE(stream.init(second));
    ASSERT_NE(stream.header(), nullptr);
    EXPECT_EQ(stream.header()->toolName()->str(), "late");
}

TEST(FlatBufferReaderUtilTest, TwelveByteChunkIsAccepted) {
    // The builder agrees that an empty chunk takes 12 bytes.
    EXPECT_EQ(buildChunk(ChunkSpec{}).size(), 12u);
    LogCapture capture;
    FlatBufferReaderUtil stream;
    ASSERT_TRUE(stream.init(bufferOf(smallestChunk())));
    EXPECT_NE(stream.root(), nullptr);
    EXPECT_EQ(stream.header(), nullptr);
    EXPECT_EQ(stream.nextMessage(), nullptr);
    EXPECT_EQ(capture.count(kCorrupt), 0u);
}

TEST(FlatBufferReaderUtilTest, ShortBuffersAndBadRootOffsetsAreCorrupt) {
    auto withRootOffset = [](uint32_t offset) {
        std::vector<uint8_t> bytes = smallestChunk();
        bytes[0] = static_cast<uint8_t>(offset);
        bytes[1] = static_cast<uint8_t>(offset >> 8);
        bytes[2] = static_cast<uint8_t>(offset >> 16);
        bytes[3] = static_cast<uint8_t>(offset >> 24);
        return bytes;
    };
    std::vector<uint8_t> eleven = smallestChunk();
    eleven.pop_back();
    const std::vector<std::vector<uint8_t>> refused = {
        {},
        eleven,
        withRootOffset(0),
        withRootOffset(0x80000000u),  // negative as a signed offset
        withRootOffset(0xfffffffcu),
        withRootOffset(12),           // == size
        withRootOffset(11),           // in range, but no room for a table
    };
    LogCapture capture;
    FlatBufferReaderUtil stream;
    auto good = bufferOf(smallestChunk());
    ASSERT_TRUE(stream.init(good));
    const fb::LogChunk* root = stream.root();
    for (size_t i = 0; i < refused.size(); ++i) {
        EXPECT_FALSE(stream.init(bufferOf(refused[i]))) << "case " << i;
        EXPECT_EQ(stream.root(), root) << "case " << i;
    }
    EXPECT_FALSE(stream.init(nullptr));
    EXPECT_EQ(capture.count(kCorrupt), refused.size() + 1);
    EXPECT_TRUE(capture.contains(kCorrupt, 1));
}

TEST(FlatBufferReaderUtilTest, MessageWithoutStampOrTimingMakesTheChunkCorrupt) {
    for (const bool omitStamp : {true, false}) {
        LogCapture capture;
        FlatBufferReaderUtil stream;
        MessageSpec broken(1);
        broken.graph("g");
        broken.omitStamp = omitStamp;
        broken.omitTiming = !omitStamp;
        ChunkSpec chunk;
        chunk.header(HeaderSpec{}).message(MessageSpec(1).graph("ok")).message(broken);
        EXPECT_FALSE(stream.init(bufferOf(buildChunk(chunk))));
        EXPECT_EQ(stream.root(), nullptr);
        EXPECT_EQ(stream.header(), nullptr);
        EXPECT_EQ(capture.count(kCorrupt), 1u);
    }
}

}  // namespace
}  // namespace profiling
}  // namespace vek
