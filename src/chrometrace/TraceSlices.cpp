#include "chrometrace/TraceSlices.h"

#include <string>
#include <string_view>
#include <vector>

#include "chrometrace/LintingIdentifiers.h"
#include "chrometrace/TraceText.h"
#include "log/ProfileEvent.h"
#include "logging/Log.h"
#include "reader/VekProfileLogReader.h"

namespace vek {
namespace profiling {
namespace {

// What the children of one op record say about it. The name lists view the
// reader's strings, which outlive the walk.
struct OpLinting {
    uint64_t wait = 0;            // W
    uint64_t opBackground = 0;    // B
    uint64_t waitBackground = 0;  // C
    uint64_t resourceMask = 0;    // M
    bool hasWait = false;
    bool hasOpBackground = false;
    bool hasWaitBackground = false;
    bool hasResourceMask = false;
    std::vector<std::string_view> opBackgroundNames;
    std::vector<std::string_view> waitBackgroundNames;

    // Keeps the lists' storage so that wide logs do not reallocate per op.
    void reset() {
        wait = opBackground = waitBackground = resourceMask = 0;
        hasWait = hasOpBackground = hasWaitBackground = hasResourceMask = false;
        opBackgroundNames.clear();
        waitBackgroundNames.clear();
    }
    bool complete() const {
        return hasWait && hasOpBackground && hasWaitBackground && hasResourceMask;
    }
};

void collectNames(const ProfileEvent& parent, uint32_t nameIdentifier,
                  std::vector<std::string_view>& names) {
    for (const ProfileEvent& child : parent.children) {
        if (child.identifier == nameIdentifier) names.emplace_back(child.name);
    }
}

// Payloads are taken as u64 whatever their type code. A repeated 5001..5004
// child overrides the earlier one; names of repeated 5002/5003 accumulate.
void scanOpRecord(const ProfileEvent& op, OpLinting& linting) {
    linting.reset();
    for (const ProfileEvent& child : op.children) {
        switch (child.identifier) {
            case kWaitDurationIdentifier:
                linting.wait = child.value.payload;
                linting.hasWait = true;
                break;
            case kOpBackgroundIdentifier:
                linting.opBackground = child.value.payload;
                linting.hasOpBackground = true;
                collectNames(child, kOpBackgroundNameIdentifier, linting.opBackgroundNames);
                break;
            case kWaitBackgroundIdentifier:
                linting.waitBackground = child.value.payload;
                linting.hasWaitBackground = true;
                collectNames(child, kWaitBackgroundNameIdentifier, linting.waitBackgroundNames);
                break;
            case kResourceMaskIdentifier:
                linting.resourceMask = child.value.payload;
                linting.hasResourceMask = true;
                break;
            default:
                break;
        }
    }
}

// Hands on the slices of one op at the cursor and moves the cursor past them.
void layOp(const ProfileEvent& op, const OpLinting& linting, uint64_t& traceCursor,
           TraceSliceSink& sink) {
    if (linting.wait != 0) {
        sink.addSlice(TraceSlice{"Wait", traceCursor, linting.wait, true, {}, "grey"});
        const std::string names = joinNames(linting.waitBackgroundNames);
        sink.addSlice(TraceSlice{names, traceCursor, linting.waitBackground, false, {}, {}});
        traceCursor += linting.wait;  // wraps like any u64 sum
    }
    const uint64_t opDuration = op.value.payload;
    if (opDuration != 0) {
        // The mask is the low byte of the 5004 payload.
        const std::string resources =
            resourceLabel(static_cast<uint8_t>(linting.resourceMask & 0xFFu));
        sink.addSlice(TraceSlice{op.name, traceCursor, opDuration, true, resources, {}});
        const std::string names = joinNames(linting.opBackgroundNames);
        sink.addSlice(TraceSlice{names, traceCursor, linting.opBackground, false, {}, {}});
        traceCursor += opDuration;
    }
}

}  // namespace

bool forEachTraceSlice(const VekProfileLogReader& reader, TraceSliceSink& sink) {
    // One cursor for the whole timeline: graphs and executions follow each
    // other on the same gap-free foreground lane.
    uint64_t traceCursor = 0;
    OpLinting linting;
    size_t graphIndex = 0;

    // The summaries are only read, so they are walked in place.
    for (const GraphSummary& graph : reader.executeStats.average) {
        sink.beginGraph(graphIndex++, graph);
        for (const ProfileEvent& execution : graph.events) {
            for (const ProfileEvent& op : execution.children) {
                if (op.identifier != kOpRecordIdentifier) continue;
                scanOpRecord(op, linting);
                if (!linting.complete()) {
                    vekLog(kLogError,
                           "Log file contains incompatible data! Please provide log file "
                           "generated using the linting profile!");
                    return false;
                }
                layOp(op, linting, traceCursor, sink);
            }
        }
    }
    return true;
}

}  // namespace profiling
}  // namespace vek
