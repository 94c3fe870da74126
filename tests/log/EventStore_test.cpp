// The texts behind loaded events: comparison, hashing and the interning pool.
#include "log/EventStore.h"

#include <gtest/gtest.h>

#include <set>

namespace vek::profiling {
namespace {

// The short path compares with overlapping word loads: each must cover every byte.
TEST(TextHashTest, ComparisonAndHashSeeEveryByteAndTheLength) {
    std::set<uint64_t> hashes;
    size_t texts = 0;
    for (size_t size = 0; size <= 40; ++size) {
        const std::string text(size, 'a');
        EXPECT_TRUE(sameBytes(text.data(), std::string(text).data(), size)) << size;
        EXPECT_EQ(hashText(text), hashText(std::string(text)));
        hashes.insert(hashText(text));
        ++texts;
        for (size_t at = 0; at < size; ++at) {
            std::string changed = text;
            changed[at] = 'b';
            EXPECT_FALSE(sameBytes(text.data(), changed.data(), size)) << size << " at " << at;
            hashes.insert(hashText(changed));
            ++texts;
        }
    }
    EXPECT_EQ(hashes.size(), texts);  // no two of these texts collide
}

TEST(TextPoolTest, EqualTextsShareOneCopyThatNeverMoves) {
    TextPool pool;
    const std::string& first = pool.intern("Conv2d_1");
    EXPECT_EQ(&pool.intern(std::string("Conv2d_") + "1"), &first);
    EXPECT_NE(&pool.intern("Conv2d_2"), &first);
    EXPECT_EQ(&pool.intern(""), &pool.intern(std::string()));
    std::vector<const std::string*> stored;  // enough texts for the table to grow several times
    for (int i = 0; i < 5000; ++i) stored.push_back(&pool.intern("op_" + std::to_string(i)));
    EXPECT_EQ(pool.size(), 5000u + 3u);
    for (int i = 0; i < 5000; ++i) {
        ASSERT_EQ(&pool.intern("op_" + std::to_string(i)), stored[i]);
        ASSERT_EQ(*stored[i], "op_" + std::to_string(i));
    }
    EXPECT_EQ(&pool.intern("Conv2d_1"), &first);
}

}  // namespace
}  // namespace vek::profiling
