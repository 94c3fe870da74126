// Accumulates the event lists of several calls by name. The sums are kept in
// compact nodes that refer to the first event merged at each place, so that
// merging a call touches little memory; wide lists get a name index, so they
// merge in linear time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "log/EventStore.h"
#include "log/LogEventFields.h"
#include "log/ProfileEvent.h"
#include "log/TextHash.h"

namespace vek {
namespace profiling {

class EventMerger {
public:
    EventMerger();
    // Goes on from events accumulated before.
    explicit EventMerger(std::vector<ProfileEvent> accumulated);
    // For merges of events read in place from the log: what it keeps of them
    // is converted into `lasting`.
    explicit EventMerger(EventStore& lasting);

    // Merges one call's events: each joins the first accumulated event of the
    // same name, or is appended (object events are never appended). The
    // merger refers to the events it is given: they must stay alive,
    // unchanged, until take().
    void merge(EventSpan incoming);
    // The same for a call's events read in place from the log, without
    // converting them: only an event that is appended is converted (into the
    // store given at construction, which this needs), so the log may go as
    // soon as this returns. Names are interned in `names`. With
    // `withoutInitEvents`, the top-level initialisation events (of an
    // execution) are passed over, as if the call did not have them.
    void merge(const LogEventVector* incoming, EventStore& names, bool withoutInitEvents);

    // The accumulated events; the merger starts afresh.
    std::vector<ProfileEvent> take();

private:
    // Levels are numbered by their place in levels_; the root is level 0,
    // which no node has as its children.
    static constexpr uint32_t kRootLevel = 0;
    static constexpr uint32_t kNoLevel = 0;

    // One accumulated event: the first event merged at its place, the
    // running sum of the values and how many events joined it. Its children
    // are those of `source` until a merge reaches them; then they get a level
    // of their own. Half a cache line, so that a level packs tightly.
    struct Node {
        const ProfileEvent* source;
        uintptr_t name;    // source->name.identity()
        uint64_t payload;  // source's payload plus those of the joined events
        uint32_t joined;   // events merged into this one (a graph's calls fit)
        uint32_t children;
    };

    // Finds names in a level whose names are not simply met in order.
    struct NameLookup {
        // Interned texts met before and the first position of their name.
        std::vector<std::pair<uintptr_t, size_t>> knownTexts;
        // For wide levels: every name's first position. The keys view the
        // names of the nodes' sources.
        std::unordered_map<std::string_view, size_t, TextHash> firstByName;
        bool hashed = false;
    };

    // The nodes of a level lie together in nodes_, from `first`; levels are
    // laid out in the order they are made, which is the order merges walk
    // them in, so that a merge reads the nodes almost in sequence.
    struct Level {
        uint32_t first = 0;
        uint32_t count = 0;
        uint32_t capacity = 0;
        // Whether distinctNames has been worked out (at the first merge into
        // a level that has nodes).
        bool studied = false;
        // No two nodes share a name. Appending keeps it true, since only
        // unmatched names are appended.
        bool distinctNames = false;
        std::unique_ptr<NameLookup> lookup;
    };

    static Node nodeOf(const ProfileEvent& event);
    Node* nodesOf(const Level& level) { return nodes_.data() + level.first; }
    const Node* nodesOf(const Level& level) const { return nodes_.data() + level.first; }
    // Makes room for `count` nodes of `level` at the end of nodes_, moving
    // those it has there.
    void makeRoom(Level& level, uint32_t count);
    // Reads the incoming events: LoadedEvents or LoggedEvents (EventMerger.cpp).
    template <typename Incoming>
    void mergeInto(uint32_t level, const Incoming& incoming);
    void append(uint32_t level, const ProfileEvent& source);
    void study(Level& level);
    // The first node named as `event` (of an Incoming list), or none.
    template <typename Event>
    size_t findFirstOf(Level& level, const Event& event);
    size_t findFirst(Level& level, const EventText& name);
    size_t findByText(Level& level, const EventText& name);
    void buildHash(Level& level);
    static void remember(Level& level, const EventText& name, size_t position);
    // Makes the level of a node's children, which it does not have yet.
    uint32_t childLevel(uint32_t level, size_t position);
    ProfileEvent materialize(const Node& node) const;

    std::vector<ProfileEvent> initial_;  // the events a merger went on from
    std::vector<Level> levels_;
    std::vector<Node> nodes_;
    EventStore* lasting_ = nullptr;  // set for merges from the log
    // The pool that every name merged so far is interned in, when there is
    // one: then names are equal exactly when they are the same text.
    const EventStore* namePool_ = nullptr;
    bool mixedPools_ = false;
    // The copies the nodes refer to; each stays where it is.
    std::vector<std::unique_ptr<ProfileEvent>> copies_;
};

}  // namespace profiling
}  // namespace vek
