#include "chrometrace/PortableTraceWriter.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <string>
#include <string_view>

#include "chrometrace/TraceLanes.h"
#include "chrometrace/TraceSlices.h"
#include "chrometrace/Utf8Repair.h"
#include "reader/VekProfileLogReader.h"
#include "stats/StatSummary.h"

namespace vek {
namespace profiling {
namespace {

constexpr std::string_view kDocumentStart = "{\"traceEvents\":[\n";
constexpr std::string_view kDocumentEnd = "\n],\n\"displayTimeUnit\":\"ms\"}\n";
constexpr const char* kNoGraphsProcess = "no executed graphs";
// The process of metadata that names a process rather than a thread.
constexpr uint32_t kProcessThread = 0;

// A walk that only checks every op record, so that a refused log is
// refused before anything is written.
class CheckOnly : public TraceSliceSink {
public:
    void addSlice(const TraceSlice&) override {}
};

// Writes one event per line into a buffer that goes to the stream whenever
// it holds a batch, so the document never sits whole in memory.
class EventLines {
public:
    using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

    explicit EventLines(std::ostream& out) : out_(out), writer_(buffer_) {
        buffer_.Reserve(kBatch + kBatch / 4);
        put(kDocumentStart);
    }

    // A writer for the next event, which the caller writes as one object.
    Writer& next() {
        if (events_++ != 0) put(",\n");
        writer_.Reset(buffer_);
        return writer_;
    }
    // A string in valid UTF-8; the writer escapes control characters.
    void string(std::string_view text) {
        const std::string_view valid = validUtf8(text, repaired_);
        writer_.String(valid.data(), static_cast<rapidjson::SizeType>(valid.size()));
    }
    void endEvent() {
        if (buffer_.GetSize() >= kBatch) flush();
    }
    bool finish() {
        put(kDocumentEnd);
        flush();
        out_.flush();
        return !out_.fail();
    }

private:
    static constexpr size_t kBatch = 64 * 1024;

    void put(std::string_view text) {
        for (char c : text) buffer_.Put(c);
    }
    void flush() {
        out_.write(buffer_.GetString(), static_cast<std::streamsize>(buffer_.GetSize()));
        buffer_.Clear();
    }

    std::ostream& out_;
    rapidjson::StringBuffer buffer_;
    Writer writer_;
    std::string repaired_;
    uint64_t events_ = 0;
};

class PortableSink : public TraceSliceSink {
public:
    explicit PortableSink(std::ostream& out) : lines_(out) {}

    void beginGraph(size_t graphIndex, const GraphSummary& graph) override {
        openProcess(graphIndex, graph.graphName);
    }

    void addSlice(const TraceSlice& slice) override {
        const TraceLanes::Placement lane = lanes_.place(slice.foreground, slice.ts, slice.dur);
        if (lane.openedLane != 0) {
            const std::string name = std::string(slice.foreground ? "Foreground " : "Background ") +
                                     std::to_string(lane.openedLane);
            nameThread(lane.thread, name);
        }
        EventLines::Writer& w = lines_.next();
        w.StartObject();
        w.Key("name");
        lines_.string(slice.name);
        w.Key("pid");
        w.Uint(pid_);
        w.Key("tid");
        w.Uint(lane.thread);
        w.Key("ph");
        w.String("X");
        w.Key("ts");
        w.Uint64(slice.ts);
        w.Key("dur");
        w.Uint64(slice.dur);
        if (!slice.cname.empty()) {
            w.Key("cname");
            lines_.string(slice.cname);
        }
        w.Key("args");
        w.StartObject();
        w.Key("Duration");
        w.Uint64(slice.dur);
        if (!slice.resources.empty()) {
            w.Key("Resources");
            lines_.string(slice.resources);
        }
        w.EndObject();
        w.EndObject();
        lines_.endEvent();
        ++shape_.slices;
    }

    // Processes are numbered from 1: some viewers take pid 0 for the idle task.
    void openProcess(size_t index, std::string_view name) {
        finishProcess();
        pid_ = static_cast<uint64_t>(index) + 1;
        metadata("process_name", kProcessThread, "name", name);
        metadata("process_sort_index", kProcessThread, "sort_index", index);
        nameThread(TraceLanes::kForegroundThread, "Foreground");
        nameThread(TraceLanes::kBackgroundThread, "Background");
        ++shape_.processes;
    }

    bool finish(PortableTraceShape* shape) {
        finishProcess();
        if (shape != nullptr) *shape = shape_;
        return lines_.finish();
    }

private:
    void finishProcess() {
        if (pid_ == 0) return;
        shape_.threads += lanes_.threadCount();
        lanes_.reset();
    }

    // Threads sort by id: Foreground on top, then Background, then the
    // extra lanes in the order they were opened.
    void nameThread(uint32_t thread, std::string_view name) {
        metadata("thread_name", thread, "name", name);
        metadata("thread_sort_index", thread, "sort_index", thread);
    }

    void metadata(const char* what, uint32_t thread, const char* key, std::string_view text) {
        EventLines::Writer& w = startMetadata(what, thread);
        w.Key(key);
        lines_.string(text);
        endMetadata(w);
    }
    void metadata(const char* what, uint32_t thread, const char* key, uint64_t number) {
        EventLines::Writer& w = startMetadata(what, thread);
        w.Key(key);
        w.Uint64(number);
        endMetadata(w);
    }
    EventLines::Writer& startMetadata(const char* what, uint32_t thread) {
        EventLines::Writer& w = lines_.next();
        w.StartObject();
        w.Key("name");
        w.String(what);
        w.Key("ph");
        w.String("M");
        w.Key("pid");
        w.Uint64(pid_);
        w.Key("tid");
        w.Uint(thread);
        w.Key("args");
        w.StartObject();
        return w;
    }
    void endMetadata(EventLines::Writer& w) {
        w.EndObject();
        w.EndObject();
        lines_.endEvent();
    }

    EventLines lines_;
    TraceLanes lanes_;
    uint64_t pid_ = 0;
    PortableTraceShape shape_;
};

}  // namespace

bool writePortableTrace(const VekProfileLogReader& reader, std::ostream& out,
                        PortableTraceShape* shape) {
    CheckOnly check;
    if (!forEachTraceSlice(reader, check)) return false;

    PortableSink sink(out);
    if (reader.executeStats.average.empty()) sink.openProcess(0, kNoGraphsProcess);
    // The first walk refused nothing, so neither does this one.
    forEachTraceSlice(reader, sink);
    return sink.finish(shape);
}

}  // namespace profiling
}  // namespace vek
