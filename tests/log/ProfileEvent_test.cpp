// The handles of the event model: texts, bytes and lists of children that are
// either shared with the reader's event store or owned by the event.
#include "log/ProfileEvent.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "log/EventStore.h"

namespace vek {
namespace profiling {
namespace {

ProfileEvent named(EventText name, uint64_t payload) {
    ProfileEvent event;
    event.name = std::move(name);
    event.value = EventValue{kDataTypeUInt64, payload};
    return event;
}

// A stored list of the given names, as the loader builds one.
EventList storedList(EventStore& store, const std::vector<std::string>& names) {
    StoredEvents& list = store.newList(names.size());
    ProfileEvent* slot = list.events();
    for (size_t i = 0; i < names.size(); ++i)
        new (slot++) ProfileEvent(named(store.intern(names[i]), i));
    return EventList::stored(list);
}

TEST(EventTextTest, OwnedAndInternedTextsCompareByContent) {
    EventStore store;
    EventText owned;
    owned = std::string("wait");
    const EventText interned = store.intern("wait");
    EXPECT_EQ(owned, interned);
    EXPECT_EQ(owned, "wait");
    EXPECT_NE(owned, "wai");
    EXPECT_FALSE(owned.isInterned());
    EXPECT_TRUE(interned.isInterned());
    EXPECT_FALSE(owned.sharesTextWith(interned));

    // An owned copy is a copy; an interned copy shares the pooled text.
    EventText copy = owned;
    EXPECT_NE(copy.c_str(), owned.c_str());
    copy = std::string("changed");
    EXPECT_EQ(owned, "wait");
    const EventText sharing = interned;
    EXPECT_EQ(sharing.c_str(), interned.c_str());
    EXPECT_TRUE(sharing.sharesTextWith(interned));

    // Empty, however held, is empty.
    EXPECT_EQ(EventText(), store.intern(""));
    EXPECT_TRUE(EventText().empty());
    EXPECT_EQ(std::string(EventText()), "");
}

TEST(EventBytesTest, ReadsAsTheByteVector) {
    EventStore store;
    const std::vector<uint8_t> raw = {1, 2, 3};
    EventBytes owned;
    owned = raw;
    const EventBytes pooled = store.keepBytes(raw.data(), raw.size());
    EXPECT_EQ(owned, raw);
    EXPECT_EQ(pooled, owned);
    EXPECT_EQ(pooled.size(), 3u);
    EXPECT_TRUE(EventBytes().empty());
    EventBytes copy = owned;
    copy = std::vector<uint8_t>{9};
    EXPECT_EQ(owned, raw);
}

TEST(EventListTest, CopiesShareAStoredListUntilOneChangesIt) {
    EventStore store;
    ProfileEvent parent;
    parent.children = storedList(store, {"a", "b", "c"});
    const ProfileEvent& original = parent;
    const ProfileEvent copy = parent;
    // Reading shares the stored events.
    EXPECT_EQ(copy.children.begin(), original.children.begin());
    ASSERT_EQ(copy.children.size(), 3u);
    EXPECT_EQ(copy.children.at(2).name, "c");
    EXPECT_THROW(copy.children.at(3), std::out_of_range);

    // The first change gives the changed event its own list.
    ProfileEvent changed = parent;
    changed.children[1].value.payload = 99;
    changed.children.push_back(named(store.intern("d"), 3));
    EXPECT_NE(std::as_const(changed).children.begin(), original.children.begin());
    EXPECT_EQ(original.children.begin(), copy.children.begin());
    EXPECT_EQ(original.children[1].value.payload, 1u);
    EXPECT_EQ(copy.children.size(), 3u);
    EXPECT_EQ(changed.children.size(), 4u);
    EXPECT_EQ(changed.children[1].value.payload, 99u);

    // An owned list is copied with the event.
    ProfileEvent again = changed;
    again.children.pop_back();
    again.children[0].name = std::string("renamed");
    EXPECT_EQ(changed.children.size(), 4u);
    EXPECT_EQ(changed.children[0].name, "a");
    again.children.clear();
    EXPECT_TRUE(again.children.empty());
    EXPECT_EQ(changed.children.size(), 4u);
}

TEST(EventListTest, BuiltFromAVectorAndWalkedAsASpan) {
    std::vector<ProfileEvent> events = {named(EventText(std::string("x")), 1),
                                        named(EventText(std::string("y")), 2)};
    ProfileEvent parent;
    parent.children = std::move(events);
    const EventSpan span = parent.children;
    ASSERT_EQ(span.size(), 2u);
    EXPECT_EQ(span[1].name, "y");
    uint64_t sum = 0;
    for (const ProfileEvent& child : span) sum += child.value.payload;
    EXPECT_EQ(sum, 3u);
    EXPECT_TRUE(EventSpan(EventList()).empty());
}

}  // namespace
}  // namespace profiling
}  // namespace vek
