#include "views/LogFigureCollector.h"

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "chrometrace/LintingIdentifiers.h"
#include "chrometrace/TraceText.h"
#include "log/ProfileEvent.h"
#include "reader/VekProfileLogReader.h"
#include "stats/PrintTimeFigures.h"
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

std::string namesUnder(const ProfileEvent& parent, uint32_t nameIdentifier) {
    std::vector<std::string_view> names;
    for (const ProfileEvent& child : parent.children) {
        if (child.identifier == nameIdentifier) names.emplace_back(child.name.str());
    }
    return joinNames(names);
}

// A later child of the same identifier overrides an earlier one, as in the trace.
void readLinting(const ProfileEvent& op, OpFigures& figures) {
    for (const ProfileEvent& child : op.children) {
        switch (child.identifier) {
            case kWaitDurationIdentifier: figures.waitUs = timeOf(child); break;
            case kOpBackgroundIdentifier:
                figures.backgroundUs = timeOf(child);
                figures.backgroundNames = namesUnder(child, kOpBackgroundNameIdentifier);
                break;
            case kWaitBackgroundIdentifier:
                figures.waitBackgroundUs = timeOf(child);
                figures.waitBackgroundNames = namesUnder(child, kWaitBackgroundNameIdentifier);
                break;
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

LogHeaderFigures headerFigures(const VekProfileLogReader& reader) {
    LogHeaderFigures header;
    header.present = reader.headerSaved;
    header.toolName = reader.toolName;
    header.toolVersion = reader.toolVersion;
    header.backend = reader.backend;
    header.epochTimestampUs = reader.epochTimestamp;
    header.timeScale = reader.timeScale;
    return header;
}

PhaseFigures phase(const char* name, uint64_t us, const std::string& graphName = std::string()) {
    PhaseFigures figures;
    figures.phase = name;
    figures.graphName = graphName;
    figures.durationUs = us;
    return figures;
}

// The phases in the order of the text summary.
std::vector<PhaseFigures> phaseFigures(const VekProfileLogReader& reader) {
    std::vector<PhaseFigures> phases{phase("Init", reader.initDuration),
                                     phase("Compose graphs", reader.composeDuration)};
    for (const NamedSample& finalize : reader.finalizes) {
        phases.push_back(phase("Finalize", finalize.netRunUs, finalize.graphName));
    }
    phases.push_back(phase("De-init", reader.deinitDuration));
    if (reader.hasLibLoad) {
        phases.push_back(phase("Library load", reader.libLoadDuration));
        if (const std::optional<uint64_t> latency = backendLatency(reader.libLoadEvents)) {
            phases.push_back(phase("Backend latency", *latency));
        }
    }
    if (reader.hasApplyBinarySections) {
        const SummaryLists& stats = reader.applyBinarySectionStats;
        for (size_t i = 0; i < stats.average.size(); ++i) {
            const std::string& graphName = stats.average[i].graphName;
            PhaseFigures figures = phase("Apply binary section", stats.average[i].netRunUs, graphName);
            if (const GraphSummary* minimum = summaryOf(stats.minimum, i, graphName)) {
                if (minimum->netRunUs != kNoMinimum) figures.minimumUs = minimum->netRunUs;
            }
            if (const GraphSummary* maximum = summaryOf(stats.maximum, i, graphName)) {
                figures.maximumUs = maximum->netRunUs;
            }
            phases.push_back(std::move(figures));
        }
    }
    return phases;
}

uint64_t fileSize(const std::string& path) {
    std::error_code failed;
    const uintmax_t size = std::filesystem::file_size(path, failed);
    return failed ? 0 : static_cast<uint64_t>(size);
}

}  // namespace

LogFigures collectFigures(const VekProfileLogReader& reader) {
    LogFigures figures;
    figures.logPath = reader.logFilePath;
    figures.logSizeBytes = fileSize(reader.logFilePath);
    figures.header = headerFigures(reader);
    if (reader.hasNetRun) {
        if (const std::optional<float> rate = inferencesPerSecond(reader.netRunEvents)) {
            figures.inferencesPerSecond = *rate;
        }
    }
    figures.phases = phaseFigures(reader);
    const SummaryLists& stats = reader.executeStats;
    figures.graphs.reserve(stats.average.size());
    for (size_t i = 0; i < stats.average.size(); ++i) {
        figures.graphs.push_back(graphFigures(stats, i));
    }
    return figures;
}

}  // namespace profiling
}  // namespace vek
