// The event store behind loaded events (text hashing and comparison, the
// interning pool, the name cache by place, the arena of event lists) and the
// handles of the event model that share its texts and lists.
#include "log/EventStore.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "log/ProfileEvent.h"

namespace vek {
namespace profiling {
namespace {

TEST(TextHashTest, ComparisonAndHashSeeEveryByteAndTheLength) {
    // The short path compares with overlapping word loads: every byte of
    // every length must be covered by one of them.
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
    // Many more texts make the table grow several times.
    std::vector<const std::string*> stored;
    for (int i = 0; i < 5000; ++i) stored.push_back(&pool.intern("op_" + std::to_string(i)));
    EXPECT_EQ(pool.size(), 5000u + 3u);
    for (int i = 0; i < 5000; ++i) {
        ASSERT_EQ(&pool.intern("op_" + std::to_string(i)), stored[i]);
        ASSERT_EQ(*stored[i], "op_" + std::to_string(i));
    }
    EXPECT_EQ(&pool.intern("Conv2d_1"), &first);
}

TEST(EventStoreTest, NamesByPlaceAreTheInternedTexts) {
    EventStore store;
    // One place that sees more names than it remembers, in turn, and the
    // same names at other places.
    const std::vector<std::string> names = {"DMA prefetch", "Bias load", "Weights load",
                                            "Activation spill", "Descriptor fetch", "x"};
    for (int round = 0; round < 3; ++round) {
        for (const std::string& name : names) {
            const EventText atPlace = store.internName(name, 3, 1);
            EXPECT_EQ(atPlace, name);
            EXPECT_TRUE(atPlace.sharesTextWith(store.intern(name)));
            EXPECT_TRUE(store.internName(name, 0, 7).sharesTextWith(atPlace));
        }
    }
    // Places too deep or too far along are interned all the same.
    EXPECT_TRUE(store.internName("x", 1000, 0).sharesTextWith(store.intern("x")));
    EXPECT_TRUE(store.internName("x", 0, 1u << 30).sharesTextWith(store.intern("x")));
    EXPECT_EQ(store.distinctTexts(), names.size());
}

// A stored list of `count` events, as the loader builds one.
EventList storedList(EventStore& store, size_t count) {
    StoredEvents& list = store.newList(count);
    ProfileEvent* slot = list.events();
    for (size_t i = 0; i < count; ++i) {
        ProfileEvent* event = new (slot++) ProfileEvent();
        event->identifier = static_cast<uint32_t>(count);
        event->value = EventValue{kDataTypeUInt64, i};
        event->name = store.intern("e" + std::to_string(i % 7));
    }
    return EventList::stored(list);
}

TEST(EventStoreTest, ListsKeepTheirEventsWhateverIsAllocatedAfterThem) {
    EventStore store;
    std::vector<EventList> lists;
    // Small lists around lists larger than a block of the arena.
    for (size_t count : {3u, 20000u, 5u, 1u, 15000u, 2u}) lists.push_back(storedList(store, count));
    for (const EventList& list : lists) {
        for (size_t i = 0; i < list.size(); ++i) {
            ASSERT_EQ(list[i].identifier, list.size());
            ASSERT_EQ(list[i].value.payload, i);
            ASSERT_EQ(list[i].name, "e" + std::to_string(i % 7));
        }
    }
}

TEST(EventListTest, CopiesShareAStoredListUntilOneChangesIt) {
    EventStore store;
    ProfileEvent parent;
    parent.children = storedList(store, 3);
    const ProfileEvent& original = parent;
    const ProfileEvent copy = parent;
    EXPECT_EQ(copy.children.begin(), original.children.begin());
    EXPECT_THROW(copy.children.at(3), std::out_of_range);
    // The first change gives the changed event its own list.
    ProfileEvent changed = parent;
    changed.children[1].value.payload = 99;
    changed.children.push_back(ProfileEvent());
    EXPECT_NE(std::as_const(changed).children.begin(), original.children.begin());
    EXPECT_EQ(original.children.begin(), copy.children.begin());
    EXPECT_EQ(original.children[1].value.payload, 1u);
    EXPECT_EQ(copy.children.size(), 3u);
    EXPECT_EQ(changed.children.size(), 4u);
    EXPECT_EQ(changed.children[1].value.payload, 99u);
    // An owned list is copied with the event.
    ProfileEvent again = changed;
    again.children[0].name = std::string("renamed");
    again.children.clear();
    EXPECT_EQ(changed.children.size(), 4u);
    EXPECT_EQ(changed.children[0].name, "e0");
}

}  // namespace
}  // namespace profiling
}  // namespace vek
