// Builds profile logs (length-prefixed chunks), malformed ones included, for tests and benchmarks.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vek::profiling::testlog {

// Method types of the runtime's calls, numbered from 1 in this order.
enum MethodType : uint8_t {
    kExecute = 1, kFinalize, kExecuteRoundTrip, kBinaryInit, kDeinit, kContextCreate, kCompose,
    kNetRun, kFinalize2, kLibLoad, kApplyBinarySection, kApplyBinarySection2,
    kContextGetBinarySize, kContextGetBinary, kContextGetBinarySectionSize,
    kFinalizeAfterTensorUpdates, kUpdateBinarySection,
};

// Value types of an event (which value field is set), numbered from 1.
enum ValueType : int32_t { kValueInt64 = 1, kValueUInt64, kValueFloat, kValueBytes, kValueDouble, kValueString };

struct EventSpec {
    std::optional<std::string> name;
    uint32_t identifier = 0, unit = 0;
    int32_t valueType = 0;
    int64_t int64Value = 0;
    uint64_t uint64Value = 0, timestamp = 0;
    float floatValue = 0.0f;
    double doubleValue = 0.0;
    std::optional<std::vector<uint8_t>> bytesValue;
    std::optional<std::string> stringValue, detail;
    std::optional<std::vector<EventSpec>> subEvents;

    static EventSpec u64(std::string name, uint64_t value, uint32_t unit = 1, uint32_t identifier = 0) {
        return typed(std::move(name), kValueUInt64, unit, &EventSpec::uint64Value, value).id(identifier);
    }
    static EventSpec i64(std::string name, int64_t value, uint32_t unit = 1) {
        return typed(std::move(name), kValueInt64, unit, &EventSpec::int64Value, value);
    }
    static EventSpec f32(std::string name, float value, uint32_t unit = 1) {
        return typed(std::move(name), kValueFloat, unit, &EventSpec::floatValue, value);
    }
    static EventSpec f64(std::string name, double value, uint32_t unit = 1) {
        return typed(std::move(name), kValueDouble, unit, &EventSpec::doubleValue, value);
    }
    static EventSpec text(std::string name, std::string value, uint32_t unit = 6) {
        return typed(std::move(name), kValueString, unit, &EventSpec::stringValue, std::optional(std::move(value)));
    }
    // Unit 5: the bytes are saved under the file name `detail`.
    static EventSpec object(std::string name, std::vector<uint8_t> bytes, std::string fileName) {
        return typed(std::move(name), kValueBytes, 5, &EventSpec::bytesValue, std::optional(std::move(bytes)))
            .withDetail(std::move(fileName));
    }

    EventSpec& id(uint32_t value) { identifier = value; return *this; }
    EventSpec& withUnit(uint32_t value) { unit = value; return *this; }
    EventSpec& withDetail(std::string value) { detail = std::move(value); return *this; }
    EventSpec& at(uint64_t value) { timestamp = value; return *this; }
    EventSpec& withChildren(std::vector<EventSpec> children) { subEvents = std::move(children); return *this; }

private:
    template <typename Field>
    static EventSpec typed(std::string name, int32_t type, uint32_t unit, Field EventSpec::*field, Field value) {
        EventSpec event;
        event.name = std::move(name), event.valueType = type, event.unit = unit;
        event.*field = std::move(value);
        return event;
    }
};

struct MessageSpec {
    explicit MessageSpec(uint8_t type) : methodType(type) {}
    uint8_t methodType;
    uint64_t timestamp = 0, startTime = 0, endTime = 0;
    int8_t visibility = 0;
    std::optional<std::string> graphName;
    std::optional<std::vector<EventSpec>> events;
    bool omitStamp = false;   // makes the chunk corrupt
    bool omitTiming = false;  // makes the chunk corrupt

    MessageSpec& graph(std::string name) { graphName = std::move(name); return *this; }
    MessageSpec& times(uint64_t start, uint64_t end) { timestamp = startTime = start; endTime = end; return *this; }
    MessageSpec& visible(int8_t value) { visibility = value; return *this; }
    MessageSpec& withEvents(std::vector<EventSpec> list) { events = std::move(list); return *this; }
};

struct HeaderSpec {
    float timeScale = 1.0f;
    uint64_t epochTimestamp = 0, steadyClockTimestamp = 0;
    std::optional<std::string> toolName, toolVersion, backend;

    HeaderSpec& tool(std::string name, std::string version) { toolName = name, toolVersion = version; return *this; }
    HeaderSpec& backendText(std::string text) { backend = std::move(text); return *this; }
    HeaderSpec& epoch(uint64_t us) { epochTimestamp = us; return *this; }
    HeaderSpec& steady(uint64_t value) { steadyClockTimestamp = value; return *this; }
    HeaderSpec& scale(float value) { timeScale = value; return *this; }
};

struct ChunkSpec {
    std::optional<HeaderSpec> headerSpec;
    std::optional<std::vector<MessageSpec>> messages;  // absent: no message vector

    ChunkSpec& header(HeaderSpec value) { headerSpec = std::move(value); return *this; }
    ChunkSpec& message(MessageSpec value) {
        (messages ? *messages : messages.emplace()).push_back(std::move(value));
        return *this;
    }
};

std::vector<uint8_t> buildChunk(const ChunkSpec& chunk);  // no length prefix
std::vector<uint8_t> lengthPrefixed(const std::vector<uint8_t>& body);

class LogWriter {
public:
    ChunkSpec& chunk();  // appended, built when the log is written
    LogWriter& rawChunk(std::vector<uint8_t> body);   // length prefix + the bytes as they stand
    LogWriter& rawBytes(std::vector<uint8_t> bytes);  // no prefix: garbage, a cut length field

    std::vector<uint8_t> bytes() const;
    void writeTo(const std::string& path) const;

private:
    struct Piece {
        std::optional<ChunkSpec> chunk;
        std::vector<uint8_t> raw;
        bool prefixed = false;
    };
    std::vector<Piece> pieces_;
};

// Shown every log LogWriter::writeTo writes (null: none).
using LogWrittenHook = void (*)(const std::vector<uint8_t>& log);
void setLogWrittenHook(LogWrittenHook hook);

// A scratch directory removed with the object.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

std::string readFile(const std::string& path);

}  // namespace vek::profiling::testlog
