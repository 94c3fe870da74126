#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "LogJsonDecoder.h"
#include "LogJsonEncoder.h"
#include "profile_log_generated.h"
#include "support/Golden.h"
#include "support/LogWriter.h"
#include "support/MemoryFile.h"

namespace vek {
namespace profiling {
namespace {

using namespace testlog;

struct Converted {
    ConversionStatus status;
    std::string output;
};

Converted decode(const std::string& log) {
    const MemoryFile in(log);
    std::ostringstream out;
    Converted result;
    result.status = decodeLog(in.get(), out);
    result.output = out.str();
    return result;
}

Converted decode(const std::vector<uint8_t>& log) {
    return decode(std::string(log.begin(), log.end()));
}

Converted encode(const std::string& json) {
    const MemoryFile in(json);
    std::ostringstream out;
    Converted result;
    result.status = encodeJson(in.get(), out);
    result.output = out.str();
    return result;
}

rapidjson::Document parse(const std::string& json) {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseFullPrecisionFlag>(json.c_str(), json.size());
    EXPECT_FALSE(document.HasParseError()) << json;
    return document;
}

// Encodes `json` and decodes the log; encoding and decoding that JSON again
// must give the same JSON. Returns the first decode.
std::string roundTrip(const std::string& json) {
    const Converted log = encode(json);
    EXPECT_TRUE(log.status.ok()) << log.status.error;
    const Converted first = decode(log.output);
    EXPECT_TRUE(first.status.ok()) << first.status.error;
    const Converted again = encode(first.output);
    EXPECT_TRUE(again.status.ok()) << again.status.error;
    EXPECT_EQ(decode(again.output).output, first.output);
    return first.output;
}

const std::string kSamplePath = std::string(VEK_SOURCE_DIR) + "/examples/linting_sample.json";

// A log from the test writer, not from the encoder, so that a field put in
// the wrong slot in both directions still shows.
TEST(LogJsonDecode, WriterLogShowsEveryValueTypeAndLeavesAbsentFieldsOut) {
    LogWriter log;
    log.chunk()
        .header(HeaderSpec{}.tool("vek-net-run", "v2.1").epoch(1718000000000000).scale(0.5f))
        .message(MessageSpec(kExecute).graph("g0").times(100, 250).visible(3).withEvents({
            EventSpec::u64("Accelerator", 90, 1, 7)
                .at(123)
                .withChildren(
                    {EventSpec::i64("delta", -5).withChildren({EventSpec::f32("ratio", 0.25f)})}),
            EventSpec::f64("precise", 1.0 / 3.0),
            EventSpec::text("label", "conv"),
            EventSpec::object("dump", {0, 7, 255}, "dump.bin"),
            EventSpec{},
        }))
        .message(MessageSpec(kDeinit).times(300, 310));
    log.chunk();                     // no header, no message vector
    log.chunk().messages.emplace();  // an empty message vector

    const Converted result = decode(log.bytes());
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
    LogWriter missingStamp = good;
    missingStamp.chunk().message(broken);
    LogWriter badRoot = good;
    badRoot.rawChunk(std::vector<uint8_t>(16, 0xff));
    LogWriter truncated = good;
    truncated.rawBytes({64, 0, 0, 0, 1, 2, 3});
    const struct {
        const LogWriter& log;
        std::string errorStart;
    } cases[] = {
        {missingStamp, place + ": corrupt chunk of "},
        {badRoot, place + ": corrupt chunk of 16 bytes: it fails the log verifier"},
        {truncated,
         place + ": truncated chunk: its length field announces 64 bytes, but only 3 follow"},
    };
    for (const auto& c : cases) {
        const std::string error = decode(c.log.bytes()).status.error;
        EXPECT_EQ(error.rfind(c.errorStart, 0), 0u) << error;
    }

    // A cut-short length field ends the log, as the reader treats it.
    LogWriter cutShort = good;
    cutShort.rawBytes({5, 0});
    const Converted result = decode(cutShort.bytes());
    EXPECT_EQ(result.status.chunkCount, 1u);
    EXPECT_NE(result.status.warning.find("2 trailing byte(s)"), std::string::npos);
    EXPECT_TRUE(result.status.ok()) << result.status.error;
}

TEST(LogJsonRoundTrip, SampleAndExtremeValuesComeBackUnchanged) {
    const std::string sample = readFile(kSamplePath);
    ASSERT_FALSE(sample.empty());
    EXPECT_EQ(roundTrip(sample), sample);

    // Extremes of every integer width, and keys present with their default value.
    const std::string extremes = R"({"chunks": [{"header": {"timeScale": 0.0, "epochTimestamp": 0},
        "messages": [{"methodType": 255, "visibility": -128,
            "stamp": {"timestamp": 18446744073709551615, "sequence": 0},
            "timing": {"startTime": 0, "endTime": 1, "reserved0": 2, "reserved1": 3, "reserved2": 4},
            "events": [
                {"int64Value": -9223372036854775808, "identifier": 4294967295, "valueType": -2147483648},
                {"int64Value": 9223372036854775807, "uint64Value": 0, "unit": 0, "name": ""},
                {"int64Value": -1, "subEvents": [], "bytesValue": [], "detail": "",
                 "stringValue": "with \u0000 inside"}]}]}]})";
    EXPECT_TRUE(parse(roundTrip(extremes)) == parse(extremes));
}

// NUL bytes are JSON escapes; bytes that are not UTF-8 are written as \xHH,
// which only this tool reads back, so that such names are not lost.
TEST(LogJsonRoundTrip, NamesWithNulBytesAndInvalidUtf8KeepTheirBytes) {
    const std::string names[] = {
        std::string("a\0b", 3),        "\xff\xfe", "caf\xc3\xa9", "\xf0\x9f\x98\x80",
        "\xed\xa0\x80 lone surrogate", "\xc3"};
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        LogWriter log;
        log.chunk().message(
            MessageSpec(kExecute).graph(name).withEvents({EventSpec::u64(name, 1)}));
        const Converted json = decode(log.bytes());
        ASSERT_TRUE(json.status.ok()) << json.status.error;
        const Converted encoded = encode(json.output);
        ASSERT_TRUE(encoded.status.ok()) << encoded.status.error;
        const auto* message = fb::GetLogChunk(encoded.output.data() + 4)->messages()->Get(0);
        EXPECT_EQ(message->graphName()->str(), name);
        EXPECT_EQ(message->events()->Get(0)->name()->str(), name);
    }
}

// Float fields go through their decimal text and back bit for bit. A zero is
// not stored by the log writer; the sign of zero is checked below.
TEST(LogJsonRoundTrip, FloatsAndDoublesKeepTheirBits) {
    std::vector<float> floats = {0.1f, 1.0f, std::numeric_limits<float>::max(),
                                 std::numeric_limits<float>::denorm_min(), 16777216.0f};
    std::vector<double> doubles = {0.1, 1e23, std::numeric_limits<double>::max(),
                                   std::numeric_limits<double>::denorm_min(), -1.0 / 3.0};
    std::mt19937_64 random(12345);
    while (floats.size() < 2000) {
        const uint64_t bits = random();
        float f;
        double d;
        std::memcpy(&f, &bits, sizeof f);
        std::memcpy(&d, &bits, sizeof d);
        if (std::isfinite(f) && std::isfinite(d) && f != 0 && d != 0) {
            floats.push_back(f);
            doubles.push_back(d);
        }
    }
    std::vector<EventSpec> events;
    for (size_t i = 0; i < floats.size(); ++i) {
        events.push_back(EventSpec::f32("f", floats[i]));
        events.push_back(EventSpec::f64("d", doubles[i]));
    }
    LogWriter log;
    log.chunk().message(MessageSpec(kExecute).withEvents(events));
    const std::string json = decode(log.bytes()).output;
    EXPECT_NE(json.find("\"floatValue\": 0.1\n"), std::string::npos);  // the shortest form
    // The encoder reads each text back to the same bits ...
    EXPECT_EQ(roundTrip(json), json);
    // ... and the decoder wrote the logged values.
    const rapidjson::Document doc = parse(json);
    const auto& decoded = doc["chunks"][0]["messages"][0]["events"];
    for (rapidjson::SizeType i = 0; i < floats.size(); ++i) {
        ASSERT_EQ(static_cast<float>(decoded[2 * i]["floatValue"].GetDouble()), floats[i]);
        ASSERT_EQ(decoded[2 * i + 1]["doubleValue"].GetDouble(), doubles[i]);
    }

    // A negative zero that is present keeps its sign.
    const std::string negativeZero = roundTrip(
        R"({"chunks": [{"header": {"timeScale": -0.0}, "messages": [{"stamp": {}, "timing": {},
            "events": [{"doubleValue": -0}]}]}]})");
    EXPECT_NE(negativeZero.find("\"timeScale\": -0.0\n"), std::string::npos) << negativeZero;
    EXPECT_NE(negativeZero.find("\"doubleValue\": -0.0\n"), std::string::npos) << negativeZero;
}

TEST(LogJsonRoundTrip, NonFiniteFloatsBecomeStrings) {
    const float inf = std::numeric_limits<float>::infinity();
    LogWriter log;
    log.chunk().message(MessageSpec(kExecute).withEvents(
        {EventSpec::f32("a", std::nanf("")), EventSpec::f32("b", -inf),
         EventSpec::f64("c", std::numeric_limits<double>::infinity())}));
    const std::string json = decode(log.bytes()).output;
    const rapidjson::Document doc = parse(json);
    const auto& events = doc["chunks"][0]["messages"][0]["events"];
    EXPECT_STREQ(events[0]["floatValue"].GetString(), "NaN");
    EXPECT_STREQ(events[1]["floatValue"].GetString(), "-Infinity");
    EXPECT_STREQ(events[2]["doubleValue"].GetString(), "Infinity");
    EXPECT_EQ(roundTrip(json), json);
}

TEST(LogJsonEncode, RefusalsNameThePlaceAndTheReason) {
    const std::string message = R"({"chunks": [{"messages": [{"stamp": {}, "timing": {})";
    auto withField = [&](const std::string& field) { return message + ", " + field + "}]}]}"; };
    auto withEvent = [&](const std::string& e) { return withField("\"events\": [" + e + "]"); };
    const struct {
        std::string json;
        std::string error;  // a part of the message
    } cases[] = {
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
    };
    for (const auto& c : cases) {
        const std::string error = encode(c.json).status.error;
        EXPECT_NE(error.find(c.error), std::string::npos) << c.json << "\n" << error;
    }
}

TEST(LogJsonEncode, EventNestingStopsWhereTheVerifierDoes) {
    const auto nested = [](int levels) {
        std::string events;
        for (int i = 0; i < levels; ++i) events += "{\"subEvents\": [";
        for (int i = 0; i < levels; ++i) events += "]}";
        return R"({"chunks": [{"messages": [{"stamp": {}, "timing": {}, "events": [)" + events +
               "]}]}]}";
    };
    const Converted deepest = encode(nested(62));
    ASSERT_TRUE(deepest.status.ok()) << deepest.status.error;
    EXPECT_TRUE(decode(deepest.output).status.ok());
    EXPECT_NE(encode(nested(63)).status.error.find("maximum parsing depth"), std::string::npos);
}

// Runs the tool; returns its exit status and leaves stderr in `errors`.
int runTool(const std::string& arguments, const TempDir& dir, std::string& errors) {
    const std::string command = std::string(VEK_PROFILE_LOG_TOOL) + " " + arguments + " >" +
                                dir.file("stdout.txt") + " 2>" + dir.file("stderr.txt");
    const int status = std::system(command.c_str());
    errors = readFile(dir.file("stderr.txt"));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(LogJsonTool, ExitStatusesAndMessages) {
    TempDir dir;
    std::string errors;
    EXPECT_EQ(runTool("--help", dir, errors), 0);
    EXPECT_NE(readFile(dir.file("stdout.txt")).find("Usage: vek-profile-log decode"),
              std::string::npos);
    for (const char* usage : {"", "decode a b", "--frobnicate decode a"}) {
        EXPECT_EQ(runTool(usage, dir, errors), 2) << usage;
    }
    EXPECT_EQ(runTool("encode in.json", dir, errors), 2);
    EXPECT_NE(errors.find("encode needs an output file"), std::string::npos);

    const std::string logPath = dir.file("sample.log");
    ASSERT_EQ(runTool("encode --output=" + logPath + " " + kSamplePath, dir, errors), 0) << errors;
    EXPECT_EQ(runTool("decode " + logPath + " -o " + dir.file("sample.json"), dir, errors), 0);
    EXPECT_EQ(readFile(dir.file("sample.json")), readFile(kSamplePath));
    EXPECT_EQ(runTool("decode - < " + logPath, dir, errors), 0);
    EXPECT_EQ(readFile(dir.file("stdout.txt")), readFile(kSamplePath));

    // A full disk is a failure, not a short file presented as success.
    EXPECT_EQ(runTool("decode " + logPath + " -o /dev/full", dir, errors), 1);
    EXPECT_NE(errors.find("No space left on device"), std::string::npos) << errors;

    // A refused encode leaves no output file behind.
    std::ofstream(dir.file("bad.json")) << R"({"chunks": [{}, {"messages": [{"stamp": {}}]}]})";
    EXPECT_EQ(runTool("encode " + dir.file("bad.json") + " -o " + dir.file("bad.log"), dir, errors),
              1);
    EXPECT_NE(errors.find("required field is missing: timing"), std::string::npos) << errors;
    EXPECT_FALSE(std::filesystem::exists(dir.file("bad.log")));
}

}  // namespace
}  // namespace profiling
}  // namespace vek
