#include "chrometrace/TraceEventBuilder.h"

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
// reader's strings, which outlive the build.
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

rapidjson::Value copiedString(std::string_view text,
                              rapidjson::Document::AllocatorType& allocator) {
    return rapidjson::Value(text.data(), static_cast<rapidjson::SizeType>(text.size()),
                            allocator);
}

// Lays the slices of one op at the cursor and moves the cursor past them.
void layOp(const ProfileEvent& op, const OpLinting& linting, uint64_t& traceCursor,
           rapidjson::Value& events, rapidjson::Document::AllocatorType& allocator) {
    if (linting.wait != 0) {
        addTraceEvent(events, allocator, "Wait", traceCursor, linting.wait, true, std::string(),
                      std::string("grey"));
        addTraceEvent(events, allocator, joinNames(linting.waitBackgroundNames), traceCursor,
                      linting.waitBackground, false, std::string(), std::string());
        traceCursor += linting.wait;  // wraps like any u64 sum
    }
    const uint64_t opDuration = op.value.payload;
    if (opDuration != 0) {
        // The mask is the low byte of the 5004 payload.
        std::string resources =
            resourceLabel(static_cast<uint8_t>(linting.resourceMask & 0xFFu));
        addTraceEvent(events, allocator, op.name, traceCursor, opDuration, true,
                      std::move(resources), std::string());
        addTraceEvent(events, allocator, joinNames(linting.opBackgroundNames), traceCursor,
                      linting.opBackground, false, std::string(), std::string());
        traceCursor += opDuration;
    }
}

}  // namespace

void addTraceEvent(rapidjson::Value& events, rapidjson::Document::AllocatorType& allocator,
                   std::string_view name, uint64_t ts, uint64_t dur, bool foreground,
                   std::string&& resources, std::string&& cname) {
    using rapidjson::StringRef;
    using rapidjson::Value;

    Value event(rapidjson::kObjectType);
    event.AddMember(StringRef("name"), copiedString(name, allocator), allocator);
    event.AddMember(StringRef("pid"), Value(static_cast<uint64_t>(0)), allocator);
    event.AddMember(StringRef("tid"), StringRef(foreground ? "Foreground" : "Background"),
                    allocator);
    event.AddMember(StringRef("ph"), StringRef("X"), allocator);
    event.AddMember(StringRef("ts"), Value(ts), allocator);
    event.AddMember(StringRef("dur"), Value(dur), allocator);
    if (!cname.empty()) {
        event.AddMember(StringRef("cname"), copiedString(cname, allocator), allocator);
    }
    Value args(rapidjson::kObjectType);
    args.AddMember(StringRef("Duration"), Value(dur), allocator);
    if (!resources.empty()) {
        args.AddMember(StringRef("Resources"), copiedString(resources, allocator), allocator);
    }
    event.AddMember(StringRef("args"), args, allocator);
    events.PushBack(event, allocator);

    resources.clear();
    cname.clear();
}

bool buildTraceDocument(const VekProfileLogReader& reader, rapidjson::Document& document) {
    rapidjson::Document::AllocatorType& allocator = document.GetAllocator();
    rapidjson::Value events(rapidjson::kArrayType);
    // One cursor for the whole document: graphs and executions follow each
    // other on the same gap-free foreground lane.
    uint64_t traceCursor = 0;
    OpLinting linting;

    // The summaries are only read, so they are walked in place.
    for (const GraphSummary& graph : reader.executeStats.average) {
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
                layOp(op, linting, traceCursor, events, allocator);
            }
        }
    }

    if (!document.IsObject()) document.SetObject();
    document.AddMember(rapidjson::StringRef("traceEvents"), events, allocator);
    return true;
}

}  // namespace profiling
}  // namespace vek
