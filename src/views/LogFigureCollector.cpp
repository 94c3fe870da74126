#include "views/LogFigureCollector.h"

#include <cstdint>
#include <cstring>
#include <string_view>
#include <unordered_map>

#include "chrometrace/LintingIdentifiers.h"
#include "log/ProfileEvent.h"
#include "reader/VekProfileLogReader.h"
#include "stats/Statistics.h"

namespace vek {
namespace profiling {
namespace {

// An event's value as a whole number of microseconds: integers as they are
// (negative ones as 0), floating-point values rounded; other values are
// taken as raw payloads, as the trace takes them.
uint64_t timeOf(const ProfileEvent& event) {
    const EventValue& value = event.value;
    switch (value.dataType) {
        case kDataTypeInt64:
            return static_cast<int64_t>(value.payload) < 0 ? 0 : value.payload;
        case kDataTypeFloat32:
        case kDataTypeFloat64: {
            double number = 0.0;
            if (value.dataType == kDataTypeFloat32) {
                float single = 0.0f;
                const auto bits = static_cast<uint32_t>(value.payload);
                std::memcpy(&single, &bits, sizeof single);
                number = single;
            } else {
                std::memcpy(&number, &value.payload, sizeof number);
            }
            if (!(number > 0.0)) return 0;  // negative or NaN
            if (number >= 18446744073709551616.0) return UINT64_MAX;
            return static_cast<uint64_t>(number + 0.5);
        }
        default:
            return value.payload;
    }
}

bool holdsOps(const ProfileEvent& event) {
    for (const ProfileEvent& child : event.children) {
        if (child.identifier == kOpRecordIdentifier) return true;
    }
    return false;
}

// Calls `visit` for every op record of a summary's execution, in order.
template <typename Visit>
void forEachOp(const GraphSummary& summary, Visit&& visit) {
    for (const ProfileEvent& parent : summary.events) {
        for (const ProfileEvent& child : parent.children) {
            if (child.identifier == kOpRecordIdentifier) visit(child);
        }
    }
}

// The first op of each name in a summary, as the merge finds them.
using FirstOps = std::unordered_map<std::string_view, const ProfileEvent*>;

FirstOps firstOpsOf(const GraphSummary* summary) {
    FirstOps ops;
    if (summary == nullptr) return ops;
    forEachOp(*summary, [&](const ProfileEvent& op) {
        ops.try_emplace(std::string_view(op.name.str()), &op);
    });
    return ops;
}

std::optional<uint64_t> timeIn(const FirstOps& ops, const EventText& name) {
    const auto found = ops.find(std::string_view(name.str()));
    if (found == ops.end()) return std::nullopt;
    return timeOf(*found->second);
}

// A later child of the same identifier overrides an earlier one, as in the trace.
void readLinting(const ProfileEvent& op, OpFigures& figures) {
    for (const ProfileEvent& child : op.children) {
        switch (child.identifier) {
            case kWaitDurationIdentifier: figures.waitUs = timeOf(child); break;
            case kOpBackgroundIdentifier: figures.backgroundUs = timeOf(child); break;
            case kWaitBackgroundIdentifier: figures.waitBackgroundUs = timeOf(child); break;
            case kResourceMaskIdentifier: figures.resourceMask = child.value.payload; break;
            default: break;
        }
    }
}

// The graph's summary in a list of the same graph order, or by name.
const GraphSummary* summaryOf(const std::vector<GraphSummary>& list, size_t index,
                              const std::string& graphName) {
    if (index < list.size() && list[index].graphName == graphName) return &list[index];
    for (const GraphSummary& summary : list) {
        if (summary.graphName == graphName) return &summary;
    }
    return nullptr;
}

GraphFigures graphFigures(const SummaryLists& stats, size_t index) {
    const GraphSummary& average = stats.average[index];
    const GraphSummary* maximum = summaryOf(stats.maximum, index, average.graphName);
    const GraphSummary* minimum = summaryOf(stats.minimum, index, average.graphName);

    GraphFigures graph;
    graph.graphName = average.graphName;
    graph.executionCount = average.callCount;
    graph.netRunAverageUs = average.netRunUs;
    graph.netRunMaximumUs = maximum != nullptr ? maximum->netRunUs : 0;
    if (minimum != nullptr && minimum->netRunUs != kNoMinimum) {
        graph.netRunMinimumUs = minimum->netRunUs;
    }
    for (const ProfileEvent& parent : average.events) {
        if (holdsOps(parent)) graph.acceleratorUs += timeOf(parent);
    }

    const FirstOps maximumOps = firstOpsOf(maximum);
    const FirstOps minimumOps = firstOpsOf(minimum);
    forEachOp(average, [&](const ProfileEvent& op) {
        OpFigures figures;
        figures.name = op.name.str();
        figures.averageUs = timeOf(op);
        figures.maximumUs = timeIn(maximumOps, op.name);
        figures.minimumUs = timeIn(minimumOps, op.name);
        readLinting(op, figures);
        graph.ops.push_back(std::move(figures));
    });
    return graph;
}

}  // namespace

LogFigures collectFigures(const VekProfileLogReader& reader) {
    LogFigures figures;
    figures.logPath = reader.logFilePath;
    const SummaryLists& stats = reader.executeStats;
    figures.graphs.reserve(stats.average.size());
    for (size_t i = 0; i < stats.average.size(); ++i) {
        figures.graphs.push_back(graphFigures(stats, i));
    }
    return figures;
}

}  // namespace profiling
}  // namespace vek
