#include "stats/EventMerger.h"

#include <algorithm>
#include <string_view>

#include "log/EventConversion.h"

namespace vek {
namespace profiling {
namespace {

constexpr size_t kNotFound = static_cast<size_t>(-1);

// Short levels are scanned; hashing pays off only once a level is wider.
constexpr size_t kHashedWidth = 16;
// How many interned texts a level remembers; beyond that it compares text.
constexpr size_t kKnownTextLimit = 32;

using Copies = std::vector<std::unique_ptr<ProfileEvent>>;

const ProfileEvent& keepCopy(Copies& copies, ProfileEvent&& copy) {
    copies.push_back(std::make_unique<ProfileEvent>(std::move(copy)));
    return *copies.back();
}

// The events of a call loaded into the model, as the merge reads them.
struct LoadedEvents {
    EventSpan events;

    struct Event {
        const ProfileEvent& event;
        // Whether the event is named as the node whose name has this identity.
        bool isNamed(uintptr_t identity) const { return event.name.identity() == identity; }
        const EventText& name() const { return event.name; }
        uint32_t unit() const { return event.unit; }
        uint64_t payload() const { return event.value.payload; }
        bool hasChildren() const { return !event.children.empty(); }
        LoadedEvents children() const { return LoadedEvents{event.children}; }
        // What a new node refers to: the event itself.
        const ProfileEvent& source(EventStore*, Copies&) const { return event; }
    };

    size_t size() const { return events.size(); }
    bool leftOut(size_t) const { return false; }
    Event operator[](size_t index) const { return Event{events[index]}; }
};

// The events of a call read in place from the log. Only the fields the merge
// needs are read; names are interned, so that they compare by identity.
struct LoggedEvents {
    const LogEventVector* events;
    EventStore* names;
    size_t depth;
    bool withoutInitEvents;  // at the top level

    struct Event {
        const fb::LogEvent& table;
        LogEventFields fields;
        std::string_view nameText;
        size_t position;
        EventStore* names;
        size_t depth;

        // Compared as text, so that most events need not be interned.
        bool isNamed(uintptr_t identity) const {
            const std::string& name = EventText::textOf(identity);
            return name.size() == nameText.size() &&
                   sameBytes(name.data(), nameText.data(), nameText.size());
        }
        EventText name() const { return names->internName(nameText, depth, position); }
        uint32_t unit() const { return fields.scalar<uint32_t>(fb::LogEvent::VT_UNIT); }
        uint64_t payload() const { return payloadOf(fields); }
        const LogEventVector* subEvents() const {
            return fields.pointer<LogEventVector>(fb::LogEvent::VT_SUBEVENTS);
        }
        bool hasChildren() const {
            const LogEventVector* children = subEvents();
            return children != nullptr && children->size() != 0;
        }
        LoggedEvents children() const { return LoggedEvents{subEvents(), names, depth + 1, false}; }
        const ProfileEvent& source(EventStore* lasting, Copies& copies) const {
            return keepCopy(copies, convertEventForMessage(table, *names, *lasting));
        }
    };

    size_t size() const { return events != nullptr ? events->size() : 0; }
    bool leftOut(size_t index) const {
        return withoutInitEvents && events->Get(index)->identifier() == kInitEventIdentifier;
    }
    Event operator[](size_t index) const {
        const fb::LogEvent& table = *events->Get(index);
        LogEventFields fields(table);
        const auto* name = fields.pointer<flatbuffers::String>(fb::LogEvent::VT_NAME);
        const std::string_view nameText =
            name != nullptr ? std::string_view(name->c_str(), name->size()) : "null";
        return Event{table, fields, nameText, index, names, depth};
    }
};

}  // namespace

EventMerger::EventMerger() { levels_.emplace_back(); }

EventMerger::EventMerger(std::vector<ProfileEvent> accumulated)
    : initial_(std::move(accumulated)), mixedPools_(true) {
    levels_.emplace_back();
    // Taken as they are, object events and repeated names included.
    makeRoom(levels_[kRootLevel], static_cast<uint32_t>(initial_.size()));
    for (const ProfileEvent& event : initial_) append(kRootLevel, event);
}

EventMerger::EventMerger(EventStore& lasting) : lasting_(&lasting) { levels_.emplace_back(); }

void EventMerger::merge(EventSpan incoming) {
    namePool_ = nullptr;  // loaded events may be named from anywhere
    mixedPools_ = true;
    mergeInto(kRootLevel, LoadedEvents{incoming});
}

void EventMerger::merge(const LogEventVector* incoming, EventStore& names,
                        bool withoutInitEvents) {
    // What these merges convert is named from `names` too.
    if (!mixedPools_ && (namePool_ == nullptr || namePool_ == &names)) {
        namePool_ = &names;
    } else {
        namePool_ = nullptr;
        mixedPools_ = true;
    }
    mergeInto(kRootLevel, LoggedEvents{incoming, &names, 0, withoutInitEvents});
}

EventMerger::Node EventMerger::nodeOf(const ProfileEvent& event) {
    return Node{&event, event.name.identity(), event.value.payload, 0, kNoLevel};
}

template <typename Event>
size_t EventMerger::findFirstOf(Level& level, const Event& event) {
    if (namePool_ != nullptr && level.count < kHashedWidth &&
        (level.lookup == nullptr || !level.lookup->hashed)) {
        // Every name here is interned in one pool, where equal texts are one
        // text: the nodes at hand are all it takes to tell.
        const Node* nodes = nodesOf(level);
        for (size_t i = 0; i < level.count; ++i) {
            if (event.isNamed(nodes[i].name)) return i;
        }
        return kNotFound;
    }
    return findFirst(level, event.name());
}

template <typename Incoming>
void EventMerger::mergeInto(uint32_t level, const Incoming& incoming) {
    if (levels_[level].count == 0) {
        // The first list is taken as it is, repeated names included.
        makeRoom(levels_[level], static_cast<uint32_t>(incoming.size()));
        for (size_t i = 0; i < incoming.size(); ++i) {
            if (incoming.leftOut(i)) continue;
            const auto event = incoming[i];
            if (event.unit() != kUnitObject) append(level, event.source(lasting_, copies_));
        }
        return;
    }
    if (!levels_[level].studied) study(levels_[level]);
    // Merging children adds levels and nodes, which moves both vectors:
    // this level's place in nodes_ only changes when it is appended to.
    size_t first = levels_[level].first;
    size_t nodeCount = levels_[level].count;
    const bool distinctNames = levels_[level].distinctNames;
    size_t place = 0;  // among the events not left out
    for (size_t i = 0; i < incoming.size(); ++i) {
        if (incoming.leftOut(i)) continue;
        const auto event = incoming[i];
        // Calls of one graph mostly repeat the same events in the same
        // order, so the node at the same position usually carries this very
        // name; with distinct names it is then the first match.
        const bool samePlace =
            distinctNames && place < nodeCount && event.isNamed(nodes_[first + place].name);
        const size_t position = samePlace ? place : findFirstOf(levels_[level], event);
        ++place;
        if (position == kNotFound) {
            if (event.unit() != kUnitObject) {
                append(level, event.source(lasting_, copies_));
                first = levels_[level].first;
                nodeCount = levels_[level].count;
            }
            continue;
        }
        Node& node = nodes_[first + position];
        node.payload += event.payload();
        ++node.joined;
        if (!event.hasChildren()) continue;
        const uint32_t children =
            node.children != kNoLevel ? node.children : childLevel(level, position);
        mergeInto(children, event.children());
    }
}

void EventMerger::makeRoom(Level& level, uint32_t count) {
    if (level.capacity - level.count >= count) return;
    const uint32_t capacity = std::max(level.count + count, level.capacity * 2);
    const auto first = static_cast<uint32_t>(nodes_.size());
    nodes_.resize(nodes_.size() + capacity);
    // The old room is left behind: levels rarely outgrow their first list.
    std::copy(nodes_.begin() + level.first, nodes_.begin() + level.first + level.count,
              nodes_.begin() + first);
    level.first = first;
    level.capacity = capacity;
}

void EventMerger::append(uint32_t level, const ProfileEvent& source) {
    makeRoom(levels_[level], 1);
    Level& here = levels_[level];
    nodes_[here.first + here.count] = nodeOf(source);
    const size_t position = here.count++;
    if (here.lookup == nullptr) return;
    // The hash's keys view the names of the nodes' sources.
    if (here.lookup->hashed) here.lookup->firstByName.emplace(source.name, position);
    remember(here, source.name, position);
}

void EventMerger::study(Level& level) {
    level.studied = true;
    const Node* nodes = nodesOf(level);
    if (level.count < kHashedWidth) {
        level.distinctNames = true;
        for (size_t i = 0; i < level.count && level.distinctNames; ++i) {
            for (size_t j = 0; j < i; ++j) {
                if (nodes[i].source->name == nodes[j].source->name) {
                    level.distinctNames = false;
                    break;
                }
            }
        }
    } else {
        buildHash(level);
        level.distinctNames = level.lookup->firstByName.size() == level.count;
    }
}

size_t EventMerger::findFirst(Level& level, const EventText& name) {
    if (level.lookup == nullptr) level.lookup = std::make_unique<NameLookup>();
    if (name.isInterned()) {
        for (const auto& [known, position] : level.lookup->knownTexts) {
            if (known == name.identity()) return position;
        }
    }
    const size_t position = findByText(level, name);
    if (position != kNotFound) remember(level, name, position);
    return position;
}

size_t EventMerger::findByText(Level& level, const EventText& name) {
    if (!level.lookup->hashed) {
        if (level.count < kHashedWidth) {
            const Node* nodes = nodesOf(level);
            for (size_t i = 0; i < level.count; ++i) {
                if (nodes[i].source->name == name) return i;
            }
            return kNotFound;
        }
        buildHash(level);
    }
    const auto found = level.lookup->firstByName.find(std::string_view(name));
    return found == level.lookup->firstByName.end() ? kNotFound : found->second;
}

void EventMerger::buildHash(Level& level) {
    if (level.lookup == nullptr) level.lookup = std::make_unique<NameLookup>();
    NameLookup& lookup = *level.lookup;
    // emplace keeps the first position of a repeated name, so a later
    // duplicate can never become the match.
    lookup.firstByName.reserve(level.count * 2);
    const Node* nodes = nodesOf(level);
    for (size_t i = 0; i < level.count; ++i) lookup.firstByName.emplace(nodes[i].source->name, i);
    lookup.hashed = true;
}

// An interned text never changes and never moves, so where its name first
// occurs can be remembered by its identity. Only short levels remember: wide
// ones are hashed anyway.
void EventMerger::remember(Level& level, const EventText& name, size_t position) {
    NameLookup& lookup = *level.lookup;
    if (!name.isInterned() || lookup.hashed || lookup.knownTexts.size() >= kKnownTextLimit) return;
    lookup.knownTexts.emplace_back(name.identity(), position);
}

// The level of a node's children, made on first need from the children its
// source event was recorded with (all of them, as they are).
uint32_t EventMerger::childLevel(uint32_t level, size_t position) {
    const auto created = static_cast<uint32_t>(levels_.size());
    levels_.emplace_back();
    const ProfileEvent& source = *nodesOf(levels_[level])[position].source;
    makeRoom(levels_[created], static_cast<uint32_t>(source.children.size()));
    for (const ProfileEvent& child : source.children) append(created, child);
    nodesOf(levels_[level])[position].children = created;
    return created;
}

ProfileEvent EventMerger::materialize(const Node& node) const {
    const ProfileEvent& source = *node.source;
    ProfileEvent event;
    event.identifier = source.identifier;
    event.unit = source.unit;
    // Joined values were summed as raw u64 whatever their codes were.
    event.value.dataType = node.joined != 0 ? kDataTypeUInt64 : source.value.dataType;
    event.value.payload = node.payload;
    event.bytes = source.bytes;
    event.name = source.name;
    event.detail = source.detail;
    event.timestamp = source.timestamp;
    event.sampleCount = source.sampleCount + node.joined;
    if (node.children == kNoLevel) {
        event.children = source.children;  // never merged into: as recorded
    } else {
        std::vector<ProfileEvent> children;
        const Level& level = levels_[node.children];
        children.reserve(level.count);
        for (size_t i = 0; i < level.count; ++i) children.push_back(materialize(nodesOf(level)[i]));
        event.children = std::move(children);
    }
    return event;
}

std::vector<ProfileEvent> EventMerger::take() {
    std::vector<ProfileEvent> events;
    const Level& root = levels_[kRootLevel];
    events.reserve(root.count);
    for (size_t i = 0; i < root.count; ++i) events.push_back(materialize(nodesOf(root)[i]));
    initial_.clear();
    levels_.clear();
    levels_.emplace_back();
    nodes_.clear();
    copies_.clear();
    namePool_ = nullptr;
    mixedPools_ = false;
    return events;
}

}  // namespace profiling
}  // namespace vek
