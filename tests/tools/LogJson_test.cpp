// vek-profile-log: the log <-> JSON codec, and the tool run as a process (decode, encode, check, trim).
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

#include "profile_log_generated.h"
#include "reliability/JsonRoundTrip.h"
#include "support/Golden.h"
#include "tools/ToolRun.h"

namespace vek::profiling {
namespace {

using namespace testlog;

struct Converted {
    template <typename Convert>  // decodeLog or encodeJson
    Converted(Convert how, const std::string& input) : status(reliability::convertBytes(how, input, output)) {}
    std::string output;
    ConversionStatus status;
};
Converted decode(const std::string& log) { return {decodeLog, log}; }
Converted decode(const LogWriter& log) {
    const std::vector<uint8_t> bytes = log.bytes();
    return {decodeLog, {bytes.begin(), bytes.end()}};
}
Converted encode(const std::string& json) { return {encodeJson, json}; }

// What the log encoded from `json` decodes to, once the round trip holds.
std::string roundTrip(const std::string& json) {
    EXPECT_EQ(reliability::jsonRoundTripProblem(json), "");
    return decode(encode(json).output).output;
}

const std::string kSourceDir = VEK_SOURCE_DIR, kSampleJson = kSourceDir + "/examples/linting_sample.json";
const std::string kSampleLog = std::string(VEK_SAMPLE_DIR) + "/linting_sample.log";

// A log from the test writer, not the encoder: a field put in the wrong slot both ways still shows.
TEST(LogJsonDecode, WriterLogShowsEveryValueTypeAndLeavesAbsentFieldsOut) {
    LogWriter log;
    log.chunk()
        .header(HeaderSpec{}.tool("vek-net-run", "v2.1").epoch(1718000000000000).scale(0.5f))
        .message(MessageSpec(kExecute).graph("g0").times(100, 250).visible(3).withEvents({
            EventSpec::u64("Accelerator", 90, 1, 7).at(123).withChildren(
                {EventSpec::i64("delta", -5).withChildren({EventSpec::f32("ratio", 0.25f)})}),
            EventSpec::f64("precise", 1.0 / 3.0), EventSpec::text("label", "conv"),
            EventSpec::object("dump", {0, 7, 255}, "dump.bin"), EventSpec{}}))
        .message(MessageSpec(kDeinit).times(300, 310));
    log.chunk();                     // no header, no message vector
    log.chunk().messages.emplace();  // an empty message vector
    const Converted result = decode(log);
    ASSERT_TRUE(result.status.ok()) << result.status.error;
    EXPECT_EQ(result.status.chunkCount, 3u);
    EXPECT_TRUE(matchesGolden(result.output, "tools/every_value_type.json"));
}

TEST(LogJsonDecode, CorruptChunkIsNamedByIndexAndOffset) {
    LogWriter good;
    good.chunk().message(MessageSpec(kExecute).graph("g").times(1, 2));
    const std::string place = "chunk 1 at byte offset " + std::to_string(good.bytes().size());
    MessageSpec broken(kExecute);
    broken.omitStamp = true;
    LogWriter missingStamp = good, badRoot = good, truncated = good;
    missingStamp.chunk().message(broken);
    badRoot.rawChunk(std::vector<uint8_t>(16, 0xff));
    truncated.rawBytes({64, 0, 0, 0, 1, 2, 3});
    for (const auto& [log, error] : {std::pair(&missingStamp, place + ": the chunk of 60 bytes fails verification"),
             {&badRoot, place + ": the chunk of 16 bytes fails verification"},
             {&truncated, place + ": cut short: its length field announces 64 bytes, only 3 are there"}}) {
        EXPECT_EQ(decode(*log).status.error, error);
    }
    EXPECT_EQ(decode(std::string(R"({"chunks": []})")).status.error,
              "not a profile log: it starts like JSON text, not with a chunk length");
    // A cut-short length field ends the log, as the reader treats it.
    const Converted result = decode(good.rawBytes({5, 0}));
    EXPECT_TRUE(result.status.ok() && result.status.chunkCount == 1) << result.status.error;
    EXPECT_EQ(result.status.warning, place + ": 2 bytes after the last chunk, too few for a length field");
}

// The sample, and the extremes of every integer width with keys present at their default value.
TEST(LogJsonRoundTrip, SampleAndExtremeValuesComeBackUnchanged) {
    for (const std::string& path : {kSampleJson, kSourceDir + "/tests/golden/tools/extreme_values.json"}) {
        const std::string json = readFile(path);
        ASSERT_FALSE(json.empty()) << path;
        EXPECT_EQ(roundTrip(json), json) << path;
    }
}

// NUL bytes are JSON escapes; bytes that are not UTF-8 are written as \xHH, which this tool reads back.
TEST(LogJsonRoundTrip, NamesWithNulBytesAndInvalidUtf8KeepTheirBytes) {
    for (const std::string& name : {std::string("a\0b", 3), std::string("\xff\xfe"), std::string("caf\xc3\xa9"),
                                    std::string("\xf0\x9f\x98\x80"), std::string("\xed\xa0\x80 lone surrogate"),
                                    std::string("\xc3"), std::string("\x01" "f marks no float")}) {
        SCOPED_TRACE(name);
        LogWriter log;
        log.chunk().message(MessageSpec(kExecute).graph(name).withEvents({EventSpec::u64(name, 1)}));
        const Converted encoded = encode(decode(log).output);
        ASSERT_TRUE(encoded.status.ok()) << encoded.status.error;
        const auto* message = fb::GetLogChunk(encoded.output.data() + 4)->messages()->Get(0);
        EXPECT_EQ(message->graphName()->str(), name);
        EXPECT_EQ(message->events()->Get(0)->name()->str(), name);
    }
}

// Floats go through their decimal text and back bit for bit; values not finite become strings.
TEST(LogJsonRoundTrip, FloatsAndDoublesKeepTheirBits) {
    std::vector<std::pair<float, double>> values = {{0.1f, 0.1}, {1.0f, 1e23}, {16777216.0f, -1.0 / 3.0},
        {std::numeric_limits<float>::max(), std::numeric_limits<double>::max()},
        {std::numeric_limits<float>::denorm_min(), std::numeric_limits<double>::denorm_min()}};
    std::mt19937_64 random(12345);
    while (values.size() < 2000) {
        const uint64_t bits = random();
        float f;
        double d;
        std::memcpy(&f, &bits, sizeof f);
        std::memcpy(&d, &bits, sizeof d);
        if (std::isfinite(f) && std::isfinite(d) && f != 0 && d != 0) values.emplace_back(f, d);
    }
    const float inf = std::numeric_limits<float>::infinity();
    std::vector<EventSpec> events = {EventSpec::f32("a", std::nanf("")), EventSpec::f32("b", -inf),
                                     EventSpec::f64("c", static_cast<double>(inf))};
    for (const auto& [f, d] : values) {
        events.push_back(EventSpec::f32("f", f));
        events.push_back(EventSpec::f64("d", d));
    }
    LogWriter log;
    log.chunk().message(MessageSpec(kExecute).withEvents(events));
    const std::string json = decode(log).output;
    EXPECT_NE(json.find("\"floatValue\": 0.1\n"), std::string::npos);  // the shortest form
    EXPECT_EQ(roundTrip(json), json);  // the encoder reads each text back to the same bits
    rapidjson::Document doc;
    ASSERT_FALSE(doc.Parse<rapidjson::kParseFullPrecisionFlag>(json.c_str()).HasParseError());
    const auto& decoded = doc["chunks"][0]["messages"][0]["events"];
    EXPECT_STREQ(decoded[0]["floatValue"].GetString(), "NaN");
    EXPECT_STREQ(decoded[1]["floatValue"].GetString(), "-Infinity");
    EXPECT_STREQ(decoded[2]["doubleValue"].GetString(), "Infinity");
    for (rapidjson::SizeType i = 0; i < values.size(); ++i) {  // the logged values
        ASSERT_EQ(static_cast<float>(decoded[3 + 2 * i]["floatValue"].GetDouble()), values[i].first);
        ASSERT_EQ(decoded[3 + 2 * i + 1]["doubleValue"].GetDouble(), values[i].second);
    }
    // A negative zero that is present keeps its sign.
    const std::string negativeZero = roundTrip(R"({"chunks": [{"header": {"timeScale": -0.0},
        "messages": [{"stamp": {}, "timing": {}, "events": [{"doubleValue": -0}]}]}]})");
    EXPECT_NE(negativeZero.find("\"timeScale\": -0.0\n"), std::string::npos) << negativeZero;
    EXPECT_NE(negativeZero.find("\"doubleValue\": -0.0\n"), std::string::npos) << negativeZero;
}

TEST(LogJsonEncode, RefusalsNameThePlaceAndTheReason) {
    const std::string message = R"({"chunks": [{"messages": [{"stamp": {}, "timing": {})";
    auto withField = [&](const std::string& field) { return message + ", " + field + "}]}]}"; };
    auto withEvent = [&](const std::string& e) { return withField("\"events\": [" + e + "]"); };
    const auto nested = [&](int levels) {
        std::string events;
        for (int i = 0; i < levels; ++i) events.insert(0, "{\"subEvents\": [").append("]}");
        return withEvent(events);
    };
    const std::pair<std::string, std::string> cases[] = {  // the JSON, a part of the message
        // The framing.
        {R"({"chunks": {}})", "line 1, column 12: expected {\"chunks\": [ at the start"},
        {R"({"chunks": [})", "line 1, column 13: expected a chunk object"},
        {R"({"chunks": [{}] x)", "line 1, column 17: expected the JSON to end with ]}"},
        {R"({"chunks": [{} {}]})", "expected , or ] after a chunk"},
        {R"({"chunks": [{"messages": [)", "the JSON ends inside a chunk object"},
        {"{\"chunks\": [{/* ] */}]}", "comments are not JSON"},
        {std::string("{\"chunks\": [{\"header\": {\"toolName\": \"a") + '\0' + "\"}}]}",
         "line 1, column 39: a NUL byte is not JSON"},
        // A chunk: its index and the place in the whole JSON.
        {"{\"chunks\": [\n    {},\n    {\"messages\": [{\"stamp\": {}}]}\n]}",
         "chunk 1, line 3, column 32: required field is missing: timing in LogMessage"},
        {"{\"chunks\": [{}, {\"messages\": [\n{\"stamp\": {},\n \"timing\": {}, \"nme\": 1}]}]}",
         "chunk 1, line 3, column 23: unknown field: nme"},
        {R"({"chunks": [{header: {}}]})", "expecting: string constant instead got: header"},
        {withField(R"("methodType": 256)"), "constant does not fit [0; 255]"},
        {withEvent(R"({"unit": -1})"), "constant does not fit [0; 4294967295]"},
        {withEvent(R"({"int64Value": 9223372036854775808})"), "constant does not fit"},
        {withEvent(R"({"identifier": 1.5})"), "Cannot assign token starting with 'float constant'"},
        {withEvent(R"({"bytesValue": [1, 256]})"), "constant does not fit [0; 255]"},
        {withEvent(R"({"name": 5})"), "expecting: string constant instead got: integer constant"},
        {withEvent(R"({"unit": 1, "unit": 2})"), "field set more than once: unit"},
        {withEvent(R"({"name": "\ud800"})"), "illegal Unicode sequence"},
        // Event nesting stops where the log verifier does.
        {nested(63), "maximum parsing depth"},
    };
    for (const auto& [json, error] : cases) {
        const Converted result = encode(json);
        EXPECT_NE(result.status.error.find(error), std::string::npos) << json << "\n" << result.status.error;
    }
    const Converted deepest = encode(nested(62));
    ASSERT_TRUE(deepest.status.ok()) << deepest.status.error;
    EXPECT_TRUE(decode(deepest.output).status.ok());
}

class LogToolTest : public ::testing::Test {
protected:
    void SetUp() override {
        LogWriter().rawBytes({sample_.begin(), sample_.end()}).writeTo(dir_.file("whole.log"));
        for (size_t chunk = 0; chunk < 2; ++chunk) lastChunk_ += 4 + lengthAt(lastChunk_);  // then cut the third
        LogWriter().rawBytes({sample_.begin(), sample_.begin() + lastChunk_ + 100}).writeTo(dir_.file("cut.log"));
        LogWriter().rawBytes({'{', '"', 'a', '"', ':', '1', '}'}).writeTo(dir_.file("trace.json"));
        LogWriter().writeTo(dir_.file("empty.log"));
        std::filesystem::create_directory(dir_.file("dir"));
        std::ofstream(dir_.file("bad.json")) << R"({"chunks": [{}, {"messages": [{"stamp": {}}]}]})";
    }
    uint32_t lengthAt(size_t offset) const {
        uint32_t length;
        std::memcpy(&length, sample_.data() + offset, 4);  // little-endian, as the machines here
        return length;
    }
    testtools::ToolRun run(const std::string& arguments) { return testtools::runTool(dir_, VEK_PROFILE_LOG_TOOL, arguments); }
    const std::string sample_ = readFile(kSampleLog);
    size_t lastChunk_ = 0;
    TempDir dir_;
};

TEST_F(LogToolTest, ExitStatusesAndMessages) {
    const std::string prefix = std::to_string(lastChunk_);
    const std::string cutShort = "chunk 2 at byte offset " + prefix + ": cut short: its length field "
                                 "announces " + std::to_string(lengthAt(lastChunk_)) + " bytes, only 96 are there";
    const struct {
        std::string arguments;
        int status;
        std::string out, err;  // all of standard output; a part of standard error ("": it must be empty)
    } cases[] = {
        {"", 2, "", "missing command (decode, encode, check or trim)"},
        {"frobnicate a", 2, "", "unknown command 'frobnicate'"},
        {"decode a b", 2, "", "not expected: b"},
        {"--frobnicate decode a", 2, "", "not expected: --frobnicate"},
        {"encode in.json", 2, "", "encode needs an output file"},
        {"trim cut.log", 2, "", "trim needs an output file (-o)"},
        {"check whole.log", 0, "whole.log: 3 chunks and 13 messages, " + std::to_string(sample_.size()) +
         " bytes: every chunk is whole and valid\n", ""},
        {"check cut.log", 1, "cut.log: " + cutShort + " (2 chunks and 9 messages before it)\n"
         "cut.log: 1 problem; the first 2 chunks and 9 messages (" + prefix + " bytes) are whole and valid\n", ""},
        {"check trace.json", 1,
         "trace.json: not a profile log: it starts like JSON text, not with a chunk length\n", ""},
        {"check empty.log", 1, "", "vek-profile-log: empty.log: is empty, not a profile log\n"},
        {"check dir", 1, "", "vek-profile-log: dir: is a directory, not a profile log\n"},
        {"check absent.log", 1, "", "vek-profile-log: absent.log: no such file\n"},
        {"decode whole.log -o /dev/full", 1, "", "No space left on device"},  // not a short file
        {"encode bad.json -o bad.log", 1, "", "required field is missing: timing"},
        {"trim trace.json -o out.log", 1, "", "not a profile log"},
        {"trim cut.log -o cut.log", 1, "", "cut.log"},
        {"trim cut.log -o trimmed.log", 0, "", "vek-profile-log: cut.log: kept the first 2 chunks "
         "and 9 messages (" + prefix + " bytes); dropped from " + cutShort + "\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        const testtools::ToolRun result = run(c.arguments);
        EXPECT_EQ(result.status, c.status);
        EXPECT_EQ(result.out, c.out);
        EXPECT_TRUE(c.err.empty() ? result.err.empty() : result.err.find(c.err) != std::string::npos)
            << result.err;
    }
    // A refused output leaves no file behind, and an input is never written over.
    EXPECT_FALSE(std::filesystem::exists(dir_.file("bad.log")) || std::filesystem::exists(dir_.file("out.log")));
    EXPECT_EQ(readFile(dir_.file("cut.log")).size(), lastChunk_ + 100);
    EXPECT_EQ(readFile(dir_.file("trimmed.log")), sample_.substr(0, lastChunk_));
    const testtools::ToolRun help = run("--help");
    EXPECT_TRUE(help.status == 0 && help.out.find("Usage: vek-profile-log decode") != std::string::npos) << help.out;
}

TEST_F(LogToolTest, DecodeAndEncodeFilesAndStreams) {
    ASSERT_EQ(run("encode --output=sample.log '" + kSampleJson + "'").status, 0);
    ASSERT_EQ(run("decode sample.log -o sample.json").status, 0);
    EXPECT_EQ(readFile(dir_.file("sample.json")), readFile(kSampleJson));
    EXPECT_EQ(run("decode - < sample.log").out, readFile(kSampleJson));
    EXPECT_EQ(run("trim whole.log -o copy.log").status, 0);
    EXPECT_EQ(readFile(dir_.file("copy.log")), sample_);
}

}  // namespace
}  // namespace vek::profiling
