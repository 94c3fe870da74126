// Where each graph name sits in one per-graph list of the event model, so that
// grouping a message under its graph is one hash lookup rather than a walk over
// every graph seen so far (a log may name very many graphs).
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vek {
namespace profiling {

class GraphIndex {
public:
    // The entry of `list` whose graphName equals `name` byte for byte; when
    // there is none, a new entry with that name is appended at the end. With
    // several equal names the first one wins.
    template <typename Entry>
    Entry& findOrAppend(std::vector<Entry>& list, std::string name) {
        // The index only follows the appends made through it; a list changed
        // behind its back (cleared, filled by hand) is indexed afresh.
        if (positions_.size() != list.size()) {
            rebuild(list);
        }
        auto found = positions_.find(name);
        if (found != positions_.end() &&
            (found->second >= list.size() || list[found->second].graphName != name)) {
            rebuild(list);
            found = positions_.find(name);
        }
        if (found != positions_.end()) {
            return list[found->second];
        }
        Entry entry;
        entry.graphName = name;
        list.push_back(std::move(entry));
        positions_.insert_or_assign(std::move(name), list.size() - 1);
        return list.back();
    }

private:
    template <typename Entry>
    void rebuild(const std::vector<Entry>& list) {
        positions_.clear();
        for (size_t i = 0; i < list.size(); ++i) {
            positions_.emplace(list[i].graphName, i);
        }
    }

    std::unordered_map<std::string, size_t> positions_;
};

}  // namespace profiling
}  // namespace vek
