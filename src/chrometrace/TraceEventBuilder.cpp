#include "chrometrace/TraceEventBuilder.h"

#include <string>
#include <string_view>

#include "chrometrace/TraceSlices.h"

namespace vek {
namespace profiling {
namespace {

rapidjson::Value copiedString(std::string_view text,
                              rapidjson::Document::AllocatorType& allocator) {
    return rapidjson::Value(text.data(), static_cast<rapidjson::SizeType>(text.size()),
                            allocator);
}

// Appends every slice to one array, in the order laid.
class EventArraySink : public TraceSliceSink {
public:
    EventArraySink(rapidjson::Value& events, rapidjson::Document::AllocatorType& allocator)
        : events_(events), allocator_(allocator) {}
    void addSlice(const TraceSlice& slice) override {
        addTraceEvent(events_, allocator_, slice.name, slice.ts, slice.dur, slice.foreground,
                      std::string(slice.resources), std::string(slice.cname));
    }

private:
    rapidjson::Value& events_;
    rapidjson::Document::AllocatorType& allocator_;
};

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
    EventArraySink sink(events, allocator);
    // On refusal the events already laid are discarded with the array.
    if (!forEachTraceSlice(reader, sink)) return false;

    if (!document.IsObject()) document.SetObject();
    document.AddMember(rapidjson::StringRef("traceEvents"), events, allocator);
    return true;
}

}  // namespace profiling
}  // namespace vek
