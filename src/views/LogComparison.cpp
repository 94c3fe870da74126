#include "views/LogComparison.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vek {
namespace profiling {
namespace {

uint64_t magnitude(int64_t delta) {
    // Deltas are held above the smallest int64, so negating is defined.
    return delta < 0 ? static_cast<uint64_t>(-delta) : static_cast<uint64_t>(delta);
}

OpChange opChange(const std::string& name, ChangeKind kind, uint64_t base, uint64_t changed) {
    return OpChange{name, kind, base, changed, signedDelta(base, changed),
                    percentChange(base, changed)};
}

// The n-th op of a name on one side matches the n-th op of that name on the
// other; what is left over was added or removed.
std::vector<OpChange> compareOps(const std::vector<OpFigures>& base,
                                 const std::vector<OpFigures>& changed) {
    std::unordered_map<std::string_view, std::vector<size_t>> changedByName;
    for (size_t i = 0; i < changed.size(); ++i) changedByName[changed[i].name].push_back(i);
    std::unordered_map<std::string_view, size_t> occurrences;
    std::vector<bool> matched(changed.size(), false);

    std::vector<OpChange> ops;
    ops.reserve(base.size() + changed.size());
    for (const OpFigures& op : base) {
        const size_t occurrence = occurrences[op.name]++;
        const auto candidates = changedByName.find(op.name);
        if (candidates != changedByName.end() && occurrence < candidates->second.size()) {
            const size_t other = candidates->second[occurrence];
            matched[other] = true;
            ops.push_back(opChange(op.name, ChangeKind::Matched, op.averageUs,
                                   changed[other].averageUs));
        } else {
            ops.push_back(opChange(op.name, ChangeKind::Removed, op.averageUs, 0));
        }
    }
    for (size_t i = 0; i < changed.size(); ++i) {
        if (!matched[i]) {
            ops.push_back(opChange(changed[i].name, ChangeKind::Added, 0, changed[i].averageUs));
        }
    }
    std::stable_sort(ops.begin(), ops.end(), [](const OpChange& a, const OpChange& b) {
        return magnitude(a.deltaUs) > magnitude(b.deltaUs);
    });
    return ops;
}

// Graph names are unique within a log: the loader keeps one entry per name.
using GraphsByName = std::unordered_map<std::string_view, const GraphFigures*>;

GraphsByName graphsByName(const LogFigures& figures) {
    GraphsByName graphs;
    for (const GraphFigures& graph : figures.graphs) graphs.try_emplace(graph.graphName, &graph);
    return graphs;
}

const GraphFigures* findGraph(const GraphsByName& graphs, const std::string& graphName) {
    const auto found = graphs.find(graphName);
    return found != graphs.end() ? found->second : nullptr;
}

GraphChange graphChange(const GraphFigures* base, const GraphFigures* changed) {
    static const std::vector<OpFigures> kNoOps;
    GraphChange graph;
    graph.graphName = base != nullptr ? base->graphName : changed->graphName;
    graph.kind = base == nullptr      ? ChangeKind::Added
                 : changed == nullptr ? ChangeKind::Removed
                                      : ChangeKind::Matched;
    graph.baseUs = base != nullptr ? base->netRunAverageUs : 0;
    graph.newUs = changed != nullptr ? changed->netRunAverageUs : 0;
    graph.deltaUs = signedDelta(graph.baseUs, graph.newUs);
    if (graph.kind == ChangeKind::Matched) graph.percent = percentChange(graph.baseUs, graph.newUs);
    graph.ops = compareOps(base != nullptr ? base->ops : kNoOps,
                           changed != nullptr ? changed->ops : kNoOps);
    return graph;
}

}  // namespace

int64_t signedDelta(uint64_t base, uint64_t changed) {
    constexpr uint64_t kLargest = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    if (changed >= base) return static_cast<int64_t>(std::min(changed - base, kLargest));
    return -static_cast<int64_t>(std::min(base - changed, kLargest));
}

std::optional<double> percentChange(uint64_t base, uint64_t changed) {
    if (base == 0) return std::nullopt;
    return (static_cast<double>(changed) - static_cast<double>(base)) /
           static_cast<double>(base) * 100.0;
}

LogDiff compareFigures(const LogFigures& base, const LogFigures& changed) {
    LogDiff diff;
    diff.baseLogPath = base.logPath;
    diff.newLogPath = changed.logPath;
    const GraphsByName baseGraphs = graphsByName(base);
    const GraphsByName changedGraphs = graphsByName(changed);
    for (const GraphFigures& graph : base.graphs) {
        diff.graphs.push_back(graphChange(&graph, findGraph(changedGraphs, graph.graphName)));
    }
    for (const GraphFigures& graph : changed.graphs) {
        if (findGraph(baseGraphs, graph.graphName) == nullptr) {
            diff.graphs.push_back(graphChange(nullptr, &graph));
        }
    }
    return diff;
}

}  // namespace profiling
}  // namespace vek
