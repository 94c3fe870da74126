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
#include <string>
#include <vector>

#include "LogJsonDecoder.h"
#include "LogJsonEncoder.h"
#include "OutputSink.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using namespace testlog;

struct Decoded {
    ConversionStatus status;
    std::string json;
};

Decoded decode(const std::vector<uint8_t>& log) {
    Decoded result;
    OutputSink sink(result.json);
    result.status = decodeLogBytes(log.data(), log.size(), sink);
    EXPECT_TRUE(sink.finish());
    return result;
}

struct Encoded {
    ConversionStatus status;
    std::vector<uint8_t> log;
};

Encoded encode(const std::string& json) {
    std::string bytes;
    Encoded result;
    {
        OutputSink sink(bytes);
        result.status = encodeJsonText(json, sink);
        EXPECT_TRUE(sink.finish());
    }
    result.log.assign(bytes.begin(), bytes.end());
    return result;
}

rapidjson::Document parse(const std::string& json) {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseFullPrecisionFlag>(json.c_str(), json.size());
    EXPECT_FALSE(document.HasParseError()) << json;
    return document;
}

// Encodes `json`, decodes that, encodes and decodes again: both decodes must
// agree, and once the JSON is in the decoder's key order the log bytes repeat
// too. Returns the first decode.
std::string roundTrip(const std::string& json) {
    const Encoded first = encode(json);
    EXPECT_TRUE(first.status.ok()) << first.status.error;
    const Decoded firstJson = decode(first.log);
    EXPECT_TRUE(firstJson.status.ok()) << firstJson.status.error;
    const Encoded second = encode(firstJson.json);
    EXPECT_TRUE(second.status.ok()) << second.status.error;
    const Decoded secondJson = decode(second.log);
    EXPECT_EQ(firstJson.json, secondJson.json);
    EXPECT_EQ(encode(secondJson.json).log, second.log);
    return firstJson.json;
}

const std::string kSamplePath = std::string(VEK_SOURCE_DIR) + "/examples/linting_sample.json";

// A log from the test writer, not from the encoder, so that a field mapped to
// the wrong slot in both directions still shows.
TEST(LogJsonDecode, WriterLogShowsEveryValueTypeAndLeavesAbsentFieldsOut) {
    LogWriter log;
    log.chunk()
        .header(HeaderSpec{}.tool("vek-net-run", "v2.1").epoch(1718000000000000).scale(0.5f))
        .message(MessageSpec(kExecute).graph("g0").times(100, 250).visible(3).withEvents({
            EventSpec::u64("Accelerator", 90, 1, 7).at(123).withChildren({
                EventSpec::i64("delta", -5).withChildren({EventSpec::f32("ratio", 0.25f)})}),
            EventSpec::f64("precise", 1.0 / 3.0),
            EventSpec::text("label", "conv"),
            EventSpec::object("dump", {0, 7, 255}, "dump.bin"),
            EventSpec{},
        }))
        .message(MessageSpec(kDeinit).times(300, 310));
    log.chunk();                     // no header, no message vector
    log.chunk().messages.emplace();  // an empty message vector

    const Decoded result = decode(log.bytes());
    ASSERT_TRUE(result.status.ok()) << result.status.error;
    EXPECT_EQ(result.status.chunkCount, 3u);
    EXPECT_TRUE(parse(result.json) == parse(R"({"chunks": [
        {"header": {"toolName": "vek-net-run", "toolVersion": "v2.1", "timeScale": 0.5,
                    "epochTimestamp": 1718000000000000, "version": {"major": 1}},
         "messages": [
            {"methodType": 1, "graphName": "g0", "visibility": 3, "stamp": {"timestamp": 100},
             "timing": {"startTime": 100, "endTime": 250}, "events": [
                {"name": "Accelerator", "identifier": 7, "unit": 1, "valueType": 2,
                 "uint64Value": 90, "timestamp": 123, "subEvents": [
                    {"name": "delta", "unit": 1, "valueType": 1, "int64Value": -5, "subEvents": [
                        {"name": "ratio", "unit": 1, "valueType": 3, "floatValue": 0.25}]}]},
                {"name": "precise", "unit": 1, "valueType": 5, "doubleValue": 0.3333333333333333},
                {"name": "label", "unit": 6, "valueType": 6, "stringValue": "conv"},
                {"name": "dump", "unit": 5, "valueType": 4, "bytesValue": [0, 7, 255],
                 "detail": "dump.bin"},
                {}]},
            {"methodType": 5, "stamp": {"timestamp": 300},
             "timing": {"startTime": 300, "endTime": 310}}]},
        {},
        {"messages": []}]})"))
        << result.json;
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
    const Decoded result = decode(cutShort.bytes());
    EXPECT_EQ(result.status.chunkCount, 1u);
    EXPECT_NE(result.status.warning.find("2 trailing byte(s)"), std::string::npos);
    EXPECT_TRUE(result.status.ok()) << result.status.error;
}

TEST(LogJsonRoundTrip, SampleAndExtremeValuesComeBackUnchanged) {
    const std::string sample = readFile(kSamplePath);
    ASSERT_FALSE(sample.empty());
    EXPECT_TRUE(parse(roundTrip(sample)) == parse(sample));

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
    const std::string json = decode(log.bytes()).json;
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
    EXPECT_NE(negativeZero.find("\"doubleValue\": 0.0\n"), std::string::npos) << negativeZero;
}

TEST(LogJsonRoundTrip, NonFiniteFloatsBecomeStrings) {
    const float inf = std::numeric_limits<float>::infinity();
    LogWriter log;
    log.chunk().message(MessageSpec(kExecute).withEvents(
        {EventSpec::f32("a", std::nanf("")), EventSpec::f32("b", -inf),
         EventSpec::f64("c", std::numeric_limits<double>::infinity())}));
    const std::string json = decode(log.bytes()).json;
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
    const std::string at = "chunks[0].messages[0].events[0].";
    const struct {
        std::string json;
        std::string error;  // a part of the message
    } cases[] = {
        {R"({"chunks": [})", "invalid JSON at offset 12: "},
        {R"({"chunks": [{}, {"messages": [{"stamp": {}, "timing": {}}, {"timing": {}}]}]})",
         "chunks[1].messages[1]: missing required key \"stamp\" (JSON offset "},
        {R"({"chunks": [{"messages": [{"stamp": {}}]}]})",
         "chunks[0].messages[0]: missing required key \"timing\""},
        {R"({"chunks": {}})", "chunks: expected an array of objects, found an object"},
        {withField(R"("methodType": 256)"), "methodType: expected an integer 0..255, found 256"},
        {withEvent(R"({"unit": -1})"), at + "unit: expected an integer 0..4294967295, found -1"},
        {withEvent(R"({"int64Value": 9223372036854775808})"), "out of range"},
        {withEvent(R"({"identifier": 1.5})"), "fraction or an exponent"},
        {withEvent(R"({"floatValue": 1e39})"), "range of a float"},
        {withEvent(R"({"bytesValue": [1, 256]})"),
         at + "bytesValue[1]: expected an integer 0..255"},
        {withEvent(R"({"subEvents": [{"nme": "x"}]})"),
         at + "subEvents[0]: unknown key \"nme\" in the event object"},
        {withEvent(R"({"unit": 1, "unit": 2})"), "key \"unit\" appears twice"},
    };
    for (const auto& c : cases) {
        const std::string error = encode(c.json).status.error;
        EXPECT_NE(error.find(c.error), std::string::npos) << c.json << "\n" << error;
    }
    // The largest float's shortest text lies just above it, and must still be accepted.
    EXPECT_TRUE(encode(R"({"chunks": [{"header": {"timeScale": 3.4028235e38}}]})").status.ok());
}

TEST(LogJsonEncode, EventNestingStopsWhereTheVerifierDoes) {
    const auto nested = [](int levels) {
        std::string events;
        for (int i = 0; i < levels; ++i) events += "{\"subEvents\": [";
        for (int i = 0; i < levels; ++i) events += "]}";
        return R"({"chunks": [{"messages": [{"stamp": {}, "timing": {}, "events": [)" + events +
               "]}]}]}";
    };
    const Encoded deepest = encode(nested(62));
    ASSERT_TRUE(deepest.status.ok()) << deepest.status.error;
    EXPECT_TRUE(decode(deepest.log).status.ok());
    EXPECT_NE(encode(nested(63)).status.error.find("nested deeper than 62 levels"),
              std::string::npos);
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
    EXPECT_EQ(readFile(dir.file("sample.json")), decode(encode(readFile(kSamplePath)).log).json);

    // A full disk is a failure, not a short file presented as success.
    EXPECT_EQ(runTool("decode " + logPath + " -o /dev/full", dir, errors), 1);
    EXPECT_NE(errors.find("No space left on device"), std::string::npos) << errors;

    // A refused encode leaves no output file behind.
    std::ofstream(dir.file("bad.json")) << R"({"chunks": [{}, {"messages": [{"stamp": {}}]}]})";
    EXPECT_EQ(runTool("encode " + dir.file("bad.json") + " -o " + dir.file("bad.log"), dir, errors),
              1);
    EXPECT_NE(errors.find("missing required key \"timing\""), std::string::npos) << errors;
    EXPECT_FALSE(std::filesystem::exists(dir.file("bad.log")));
}

}  // namespace
}  // namespace profiling
}  // namespace vek
