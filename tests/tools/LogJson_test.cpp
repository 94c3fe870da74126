#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "LogJsonDecoder.h"
#include "LogJsonEncoder.h"
#include "OutputSink.h"
#include "profile_log_generated.h"
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

// The encoder's error for a document with one message whose only event is `event`.
std::string eventError(const std::string& event) {
    const Encoded result = encode(R"({"chunks": [{"messages": [{"stamp": {}, "timing": {},
        "events": [)" + event + "]}]}]}");
    EXPECT_FALSE(result.status.ok()) << event;
    return result.status.error;
}

// Encodes `json`, decodes that, encodes and decodes again: both decodes must
// agree, and once the JSON is in the decoder's key order the log bytes repeat
// too. Returns the decode.
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

std::string sampleJson() {
    return readFile(std::string(VEK_SOURCE_DIR) + "/examples/linting_sample.json");
}

TEST(LogJsonDecode, WriterLogShowsEveryValueTypeAndLeavesAbsentFieldsOut) {
    LogWriter log;
    ChunkSpec& first = log.chunk();
    first.header(HeaderSpec{}.tool("vek-net-run", "v2.1").backendText("NPU").epoch(1718000000000000).steady(77).scale(0.5f));
    first.message(MessageSpec(kExecute).graph("g0").times(100, 250).visible(3).withEvents({
        EventSpec::u64("Accelerator", 90, 1, 7).at(123).withChildren({
            EventSpec::i64("delta", -5).withChildren({EventSpec::f32("ratio", 0.25f)})}),
        EventSpec::f64("precise", 1.0 / 3.0),
        EventSpec::text("label", "conv"),
        EventSpec::object("dump", {0, 7, 255}, "dump.bin"),
        EventSpec{},
    }));
    first.message(MessageSpec(kDeinit).times(300, 310));
    log.chunk();  // no header, no message vector
    log.chunk().messages.emplace();  // an empty message vector

    const Decoded result = decode(log.bytes());
    ASSERT_TRUE(result.status.ok()) << result.status.error;
    EXPECT_EQ(result.status.chunkCount, 3u);
    const rapidjson::Document doc = parse(result.json);
    const auto& chunks = doc["chunks"];
    ASSERT_EQ(chunks.Size(), 3u);

    const auto& header = chunks[0]["header"];
    EXPECT_STREQ(header["toolName"].GetString(), "vek-net-run");
    EXPECT_STREQ(header["toolVersion"].GetString(), "v2.1");
    EXPECT_STREQ(header["backend"].GetString(), "NPU");
    EXPECT_EQ(header["epochTimestamp"].GetUint64(), 1718000000000000u);
    EXPECT_EQ(header["steadyClockTimestamp"].GetUint64(), 77u);
    EXPECT_EQ(header["timeScale"].GetDouble(), 0.5);
    EXPECT_EQ(header["version"]["major"].GetUint(), 1u);
    EXPECT_FALSE(header["version"].HasMember("minor"));  // written as the default 0

    const auto& messages = chunks[0]["messages"];
    ASSERT_EQ(messages.Size(), 2u);
    const auto& execute = messages[0];
    EXPECT_EQ(execute["methodType"].GetUint(), 1u);
    EXPECT_STREQ(execute["graphName"].GetString(), "g0");
    EXPECT_EQ(execute["visibility"].GetInt(), 3);
    EXPECT_EQ(execute["stamp"]["timestamp"].GetUint64(), 100u);
    EXPECT_FALSE(execute["stamp"].HasMember("sequence"));
    EXPECT_EQ(execute["timing"]["startTime"].GetUint64(), 100u);
    EXPECT_EQ(execute["timing"]["endTime"].GetUint64(), 250u);

    const auto& events = execute["events"];
    ASSERT_EQ(events.Size(), 5u);
    const auto& accelerator = events[0];
    EXPECT_STREQ(accelerator["name"].GetString(), "Accelerator");
    EXPECT_EQ(accelerator["identifier"].GetUint(), 7u);
    EXPECT_EQ(accelerator["valueType"].GetInt(), 2);
    EXPECT_EQ(accelerator["uint64Value"].GetUint64(), 90u);
    EXPECT_EQ(accelerator["timestamp"].GetUint64(), 123u);
    EXPECT_FALSE(accelerator.HasMember("int64Value"));
    EXPECT_FALSE(accelerator.HasMember("detail"));
    const auto& delta = accelerator["subEvents"][0];
    EXPECT_EQ(delta["int64Value"].GetInt64(), -5);
    EXPECT_FALSE(delta.HasMember("identifier"));
    const auto& ratio = delta["subEvents"][0];
    EXPECT_EQ(ratio["floatValue"].GetDouble(), 0.25);
    EXPECT_FALSE(ratio.HasMember("subEvents"));
    EXPECT_EQ(events[1]["doubleValue"].GetDouble(), 1.0 / 3.0);
    EXPECT_STREQ(events[2]["stringValue"].GetString(), "conv");
    EXPECT_EQ(events[2]["unit"].GetUint(), 6u);
    const auto& dump = events[3];
    EXPECT_STREQ(dump["detail"].GetString(), "dump.bin");
    ASSERT_EQ(dump["bytesValue"].Size(), 3u);
    EXPECT_EQ(dump["bytesValue"][2].GetUint(), 255u);
    EXPECT_TRUE(events[4].ObjectEmpty());  // nameless event with nothing set

    EXPECT_FALSE(messages[1].HasMember("graphName"));
    EXPECT_FALSE(messages[1].HasMember("events"));
    EXPECT_TRUE(chunks[1].ObjectEmpty());
    ASSERT_TRUE(chunks[2].HasMember("messages"));
    EXPECT_TRUE(chunks[2]["messages"].Empty());
    EXPECT_FALSE(chunks[2].HasMember("header"));
}

TEST(LogJsonDecode, CorruptChunkIsNamedByIndexAndOffset) {
    LogWriter good;
    good.chunk().message(MessageSpec(kExecute).graph("g").times(1, 2));
    const size_t firstChunkEnd = good.bytes().size();

    LogWriter missingStamp = good;
    MessageSpec broken(kExecute);
    broken.omitStamp = true;
    missingStamp.chunk().message(broken);
    Decoded result = decode(missingStamp.bytes());
    EXPECT_NE(result.status.error.find("chunk 1 at byte offset " + std::to_string(firstChunkEnd)),
              std::string::npos)
        << result.status.error;
    EXPECT_NE(result.status.error.find("fails the log verifier"), std::string::npos);

    LogWriter badRoot = good;
    badRoot.rawChunk(std::vector<uint8_t>(16, 0xff));
    result = decode(badRoot.bytes());
    EXPECT_NE(result.status.error.find("chunk 1 at byte offset " + std::to_string(firstChunkEnd)),
              std::string::npos)
        << result.status.error;

    LogWriter truncated = good;
    truncated.rawBytes({64, 0, 0, 0, 1, 2, 3});
    result = decode(truncated.bytes());
    EXPECT_NE(result.status.error.find("chunk 1 at byte offset"), std::string::npos);
    EXPECT_NE(result.status.error.find("announces 64 bytes, but only 3 follow"), std::string::npos)
        << result.status.error;

    // A cut-short length field ends the log, as the reader treats it.
    LogWriter cutShort = good;
    cutShort.rawBytes({5, 0});
    result = decode(cutShort.bytes());
    EXPECT_TRUE(result.status.ok()) << result.status.error;
    EXPECT_EQ(result.status.chunkCount, 1u);
    EXPECT_NE(result.status.warning.find("2 trailing byte(s)"), std::string::npos);

    const Decoded empty = decode({});
    EXPECT_TRUE(empty.status.ok());
    EXPECT_TRUE(parse(empty.json)["chunks"].Empty());
}

TEST(LogJsonRoundTrip, SampleSurvivesEncodeDecodeEncodeDecode) {
    const std::string json = sampleJson();
    ASSERT_FALSE(json.empty());
    const std::string decoded = roundTrip(json);
    // Every key of the sample comes back with its value.
    EXPECT_TRUE(parse(decoded) == parse(json));
}

TEST(LogJsonRoundTrip, ExtremeIntegersAndPresentDefaultsAreKept) {
    const std::string json = R"({"chunks": [{"header": {"timeScale": 0.0, "epochTimestamp": 0},
        "messages": [{"methodType": 255, "visibility": -128,
            "stamp": {"timestamp": 18446744073709551615, "sequence": 0},
            "timing": {"startTime": 0, "endTime": 1, "reserved0": 2, "reserved1": 3, "reserved2": 4},
            "events": [
                {"int64Value": -9223372036854775808, "identifier": 4294967295, "valueType": -2147483648},
                {"int64Value": 9223372036854775807, "uint64Value": 0, "unit": 0, "name": ""},
                {"int64Value": -1, "subEvents": [], "bytesValue": [], "detail": "",
                 "stringValue": "with \u0000 inside"}]}]}]})";
    const rapidjson::Document doc = parse(roundTrip(json));
    const auto& message = doc["chunks"][0]["messages"][0];
    EXPECT_EQ(message["methodType"].GetUint(), 255u);
    EXPECT_EQ(message["visibility"].GetInt(), -128);
    EXPECT_EQ(message["stamp"]["timestamp"].GetUint64(), std::numeric_limits<uint64_t>::max());
    EXPECT_EQ(message["timing"]["reserved2"].GetUint(), 4u);
    const auto& events = message["events"];
    EXPECT_EQ(events[0]["int64Value"].GetInt64(), std::numeric_limits<int64_t>::min());
    EXPECT_EQ(events[0]["identifier"].GetUint(), 4294967295u);
    EXPECT_EQ(events[0]["valueType"].GetInt(), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(events[1]["int64Value"].GetInt64(), std::numeric_limits<int64_t>::max());
    EXPECT_EQ(events[2]["int64Value"].GetInt64(), -1);
    EXPECT_EQ(std::string(events[2]["stringValue"].GetString(),
                          events[2]["stringValue"].GetStringLength()),
              std::string("with \0 inside", 13));
    // Present with the default value: still written, still shown.
    EXPECT_EQ(doc["chunks"][0]["header"]["timeScale"].GetDouble(), 0.0);
    EXPECT_EQ(message["stamp"]["sequence"].GetUint64(), 0u);
    EXPECT_EQ(events[1]["uint64Value"].GetUint64(), 0u);
    EXPECT_STREQ(events[1]["name"].GetString(), "");
    EXPECT_TRUE(events[2]["subEvents"].Empty());
    EXPECT_TRUE(events[2]["bytesValue"].Empty());
}

// Float fields go through the decimal text and back bit for bit.
TEST(LogJsonRoundTrip, FloatsAndDoublesKeepTheirBits) {
    std::mt19937_64 random(12345);
    std::vector<EventSpec> events;
    std::vector<float> floats = {0.1f, -0.0f, 1.0f, std::numeric_limits<float>::max(),
                                 std::numeric_limits<float>::denorm_min(), 16777216.0f};
    std::vector<double> doubles = {0.1, -0.0, std::numeric_limits<double>::max(),
                                   std::numeric_limits<double>::denorm_min(), 1e23};
    while (floats.size() < 2000) {
        const auto bits = static_cast<uint32_t>(random());
        float value;
        std::memcpy(&value, &bits, sizeof value);
        if (std::isfinite(value)) floats.push_back(value);
    }
    while (doubles.size() < 2000) {
        const uint64_t bits = random();
        double value;
        std::memcpy(&value, &bits, sizeof value);
        if (std::isfinite(value)) doubles.push_back(value);
    }
    for (size_t i = 0; i < floats.size(); ++i) {
        events.push_back(EventSpec::f32("f", floats[i]));
        events.push_back(EventSpec::f64("d", doubles[i]));
    }
    LogWriter log;
    log.chunk().message(MessageSpec(kExecute).withEvents(events));
    const std::vector<uint8_t> original = log.bytes();

    const Decoded decoded = decode(original);
    ASSERT_TRUE(decoded.status.ok());
    const Encoded encoded = encode(decoded.json);
    ASSERT_TRUE(encoded.status.ok()) << encoded.status.error;
    const Decoded again = decode(encoded.log);
    EXPECT_EQ(decoded.json, again.json);

    // Compare the bits through the logs themselves, not through the text.
    const auto* before = flatbuffers::GetSizePrefixedRoot<fb::LogChunk>(original.data());
    const auto* after = flatbuffers::GetSizePrefixedRoot<fb::LogChunk>(encoded.log.data());
    const auto* oldEvents = before->messages()->Get(0)->events();
    const auto* newEvents = after->messages()->Get(0)->events();
    ASSERT_EQ(newEvents->size(), oldEvents->size());
    for (uint32_t i = 0; i < oldEvents->size(); ++i) {
        const float oldFloat = oldEvents->Get(i)->floatValue();
        const float newFloat = newEvents->Get(i)->floatValue();
        const double oldDouble = oldEvents->Get(i)->doubleValue();
        const double newDouble = newEvents->Get(i)->doubleValue();
        ASSERT_EQ(std::memcmp(&oldFloat, &newFloat, sizeof oldFloat), 0) << oldFloat;
        ASSERT_EQ(std::memcmp(&oldDouble, &newDouble, sizeof oldDouble), 0) << oldDouble;
    }
    EXPECT_NE(decoded.json.find("\"floatValue\": 0.1\n"), std::string::npos);  // shortest form

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

TEST(LogJsonEncode, InvalidJsonNamesTheOffset) {
    Encoded result = encode(R"({"chunks": [})");
    EXPECT_EQ(result.status.error.rfind("invalid JSON at offset 12: ", 0), 0u)
        << result.status.error;
    result = encode("");
    EXPECT_EQ(result.status.error.rfind("invalid JSON at offset 0: ", 0), 0u);
    result = encode(R"({"chunks": []} x)");
    EXPECT_EQ(result.status.error.rfind("invalid JSON at offset 15: ", 0), 0u)
        << result.status.error;
}

TEST(LogJsonEncode, MissingStampOrTimingIsRefusedWithItsPlace) {
    const std::string good = R"({"stamp": {}, "timing": {}})";
    Encoded result = encode(R"({"chunks": [{}, {"messages": [)" + good + R"(, {"timing": {}}]}]})");
    EXPECT_EQ(result.status.error.rfind("chunks[1].messages[1]: missing required key \"stamp\"", 0),
              0u)
        << result.status.error;
    EXPECT_NE(result.status.error.find("(JSON offset "), std::string::npos);

    result = encode(R"({"chunks": [{"messages": [{"stamp": {}}]}]})");
    EXPECT_NE(result.status.error.find("chunks[0].messages[0]: missing required key \"timing\""),
              std::string::npos)
        << result.status.error;

    result = encode(R"({"chunk": []})");
    EXPECT_NE(result.status.error.find("unknown key \"chunk\""), std::string::npos);
    result = encode("{}");
    EXPECT_NE(result.status.error.find("missing required key \"chunks\""), std::string::npos);
}

TEST(LogJsonEncode, WrongTypesRangesAndKeysAreRefused) {
    // Each error names the field, the expectation and where the JSON stands.
    const std::string place = "chunks[0].messages[0].events[0].";
    EXPECT_EQ(eventError(R"({"unit": -1})").rfind(place + "unit: expected an integer 0..4294967295, found -1", 0), 0u);
    EXPECT_EQ(eventError(R"({"uint64Value": 18446744073709551616})").rfind(place + "uint64Value: expected an integer", 0), 0u);
    EXPECT_NE(eventError(R"({"int64Value": 9223372036854775808})").find("out of range"), std::string::npos);
    EXPECT_NE(eventError(R"({"valueType": 2147483648})").find("out of range"), std::string::npos);
    EXPECT_NE(eventError(R"({"identifier": 1.5})").find("fraction or an exponent"), std::string::npos);
    EXPECT_NE(eventError(R"({"name": 3})").find("name: expected a string, found the number 3"), std::string::npos);
    EXPECT_NE(eventError(R"({"name": null})").find("found null"), std::string::npos);
    EXPECT_NE(eventError(R"({"floatValue": 1e39})").find("range of a float"), std::string::npos);
    EXPECT_NE(eventError(R"({"floatValue": "fast"})").find("found the string \"fast\""), std::string::npos);
    EXPECT_NE(eventError(R"({"bytesValue": [1, 256]})").find(place + "bytesValue[1]: expected an integer 0..255"), std::string::npos);
    EXPECT_NE(eventError(R"({"bytesValue": "AAEC"})").find("expected an array of integers"), std::string::npos);
    EXPECT_NE(eventError(R"({"subEvents": [1]})").find(place + "subEvents[0]: expected an object"), std::string::npos);
    EXPECT_NE(eventError(R"({"subEvents": [{"nme": "x"}]})").find(place + "subEvents[0]: unknown key \"nme\" in the event object"), std::string::npos);
    EXPECT_NE(eventError(R"({"unit": 1, "unit": 2})").find("key \"unit\" appears twice"), std::string::npos);
    // The largest float's shortest text lies just above it, and must still be accepted.
    EXPECT_TRUE(encode(R"({"chunks": [{"header": {"timeScale": 3.4028235e38}}]})").status.ok());

    Encoded result = encode(R"({"chunks": [{"messages": [{"stamp": {}, "timing": {}, "methodType": 256}]}]})");
    EXPECT_NE(result.status.error.find("methodType: expected an integer 0..255, found 256"), std::string::npos);
    result = encode(R"({"chunks": [{"messages": [{"stamp": {}, "timing": {}, "visibility": -129}]}]})");
    EXPECT_NE(result.status.error.find("visibility: expected an integer -128..127"), std::string::npos);
    result = encode(R"({"chunks": {}})");
    EXPECT_NE(result.status.error.find("chunks: expected an array of objects, found an object"), std::string::npos);
    result = encode("[]");
    EXPECT_NE(result.status.error.find("expected an object with a \"chunks\" array"), std::string::npos);
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
    const Encoded tooDeep = encode(nested(63));
    EXPECT_NE(tooDeep.status.error.find("nested deeper than 62 levels"), std::string::npos)
        << tooDeep.status.error;
}

TEST(LogJsonSample, IsALintingRunWithCompleteOpRecords) {
    const Encoded encoded = encode(sampleJson());
    ASSERT_TRUE(encoded.status.ok()) << encoded.status.error;
    const Decoded decoded = decode(encoded.log);
    ASSERT_TRUE(decoded.status.ok()) << decoded.status.error;
    const rapidjson::Document doc = parse(decoded.json);
    const auto& chunks = doc["chunks"];
    ASSERT_GT(chunks.Size(), 0u);
    EXPECT_STREQ(chunks[0]["header"]["toolName"].GetString(), "vek-net-run");

    std::vector<unsigned> methodTypes;
    size_t opCount = 0;
    for (const auto& chunk : chunks.GetArray()) {
        ASSERT_GT(chunk["messages"].Size(), 0u);
        for (const auto& message : chunk["messages"].GetArray()) {
            methodTypes.push_back(message["methodType"].GetUint());
            if (message["methodType"].GetUint() != 1) continue;
            for (const auto& top : message["events"].GetArray()) {
                if (!top.HasMember("subEvents")) continue;
                for (const auto& op : top["subEvents"].GetArray()) {
                    if (op["identifier"].GetUint() != 404) continue;
                    ++opCount;
                    unsigned seen = 0;
                    for (const auto& child : op["subEvents"].GetArray()) {
                        const unsigned id = child["identifier"].GetUint();
                        if (id >= 5001 && id <= 5004) seen |= 1u << (id - 5001);
                    }
                    EXPECT_EQ(seen, 0xfu) << op["name"].GetString();
                }
            }
        }
    }
    EXPECT_GT(opCount, 10u);
    for (unsigned type : {10u, 6u, 7u, 2u, 1u, 8u, 5u}) {
        EXPECT_NE(std::find(methodTypes.begin(), methodTypes.end(), type), methodTypes.end())
            << "no message of type " << type;
    }
}

TEST(LogJsonOutput, FailedWritesAreReported) {
    std::string error;
    std::unique_ptr<OutputSink> sink = OutputSink::openFile("/dev/full", error);
    ASSERT_TRUE(sink) << error;
    const std::string text(100000, 'x');
    sink->write(text.data(), text.size());
    EXPECT_FALSE(sink->finish());
    EXPECT_NE(sink->error().find("No space left on device"), std::string::npos) << sink->error();

    TempDir dir;
    EXPECT_FALSE(OutputSink::openFile(dir.file("missing/out.json"), error));
    EXPECT_NE(error.find("cannot open"), std::string::npos);
}

// Runs the tool; returns its exit status and leaves stderr in `errors`.
int runTool(const std::string& arguments, const TempDir& dir, std::string& errors) {
    const std::string errorFile = dir.file("stderr.txt");
    const std::string command = std::string(VEK_PROFILE_LOG_TOOL) + " " + arguments + " >" +
                                dir.file("stdout.txt") + " 2>" + errorFile;
    const int status = std::system(command.c_str());
    errors = readFile(errorFile);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(LogJsonTool, ExitStatusesAndMessages) {
    TempDir dir;
    std::string errors;
    EXPECT_EQ(runTool("--help", dir, errors), 0);
    EXPECT_NE(readFile(dir.file("stdout.txt")).find("Usage: vek-profile-log decode"),
              std::string::npos);
    EXPECT_EQ(runTool("", dir, errors), 2);
    EXPECT_EQ(runTool("encode in.json", dir, errors), 2);
    EXPECT_NE(errors.find("encode needs an output file"), std::string::npos);
    EXPECT_EQ(runTool("decode a b", dir, errors), 2);
    EXPECT_EQ(runTool("--frobnicate decode a", dir, errors), 2);

    const std::string sample = std::string(VEK_SOURCE_DIR) + "/examples/linting_sample.json";
    const std::string logPath = dir.file("sample.log");
    ASSERT_EQ(runTool("encode --output=" + logPath + " " + sample, dir, errors), 0) << errors;
    EXPECT_EQ(runTool("decode " + logPath + " -o " + dir.file("sample.json"), dir, errors), 0);
    EXPECT_EQ(readFile(dir.file("sample.json")), decode(encode(sampleJson()).log).json);

    // A full disk is a failure, not a short file presented as success.
    EXPECT_EQ(runTool("decode " + logPath + " -o /dev/full", dir, errors), 1);
    EXPECT_NE(errors.find("No space left on device"), std::string::npos) << errors;

    LogWriter corrupt;
    corrupt.chunk().message(MessageSpec(kExecute).times(1, 2));
    corrupt.rawChunk(std::vector<uint8_t>(20, 0xee));
    corrupt.writeTo(dir.file("corrupt.log"));
    EXPECT_EQ(runTool("decode " + dir.file("corrupt.log"), dir, errors), 1);
    EXPECT_NE(errors.find("chunk 1 at byte offset"), std::string::npos) << errors;

    // A refused encode leaves no output file behind.
    std::FILE* bad = std::fopen(dir.file("bad.json").c_str(), "w");
    ASSERT_NE(bad, nullptr);
    std::fputs(R"({"chunks": [{}, {"messages": [{"stamp": {}}]}]})", bad);
    std::fclose(bad);
    EXPECT_EQ(runTool("encode " + dir.file("bad.json") + " -o " + dir.file("bad.log"), dir, errors), 1);
    EXPECT_NE(errors.find("missing required key \"timing\""), std::string::npos) << errors;
    EXPECT_FALSE(std::filesystem::exists(dir.file("bad.log")));
}

}  // namespace
}  // namespace profiling
}  // namespace vek
