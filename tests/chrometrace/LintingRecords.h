// Builds averaged execute records with linting op records from code.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include "chrometrace/LintingIdentifiers.h"
#include "chrometrace/TraceEventBuilder.h"
#include "chrometrace/Utf8Repair.h"
#include "log/ProfileEvent.h"
#include "reader/VekProfileLogReaderChrometrace.h"
#include "stats/StatSummary.h"

namespace vek {
namespace profiling {
namespace testlinting {

inline ProfileEvent event(uint32_t identifier, std::string name, uint64_t payload,
                          std::vector<ProfileEvent> children = {}) {
    ProfileEvent result;
    result.identifier = identifier;
    result.name = std::move(name);
    result.value = EventValue{kDataTypeUInt64, payload};
    result.children = std::move(children);
    return result;
}

struct OpSpec {
    std::string name = "op";
    uint64_t wait = 0;            // W (5001)
    uint64_t duration = 0;        // V (the 404 payload)
    uint64_t opBackground = 0;    // B (5002)
    uint64_t waitBackground = 0;  // C (5003)
    uint64_t mask = 0;            // M (5004)
    std::vector<std::string> opBackgroundNames;    // 5005 under 5002
    std::vector<std::string> waitBackgroundNames;  // 5006 under 5003
};

// A complete op record: all four linting children present.
inline ProfileEvent opRecord(const OpSpec& op) {
    auto items = [](uint32_t identifier, const std::vector<std::string>& names) {
        std::vector<ProfileEvent> result;
        for (const std::string& name : names) result.push_back(event(identifier, name, 0));
        return result;
    };
    return event(kOpRecordIdentifier, op.name, op.duration,
                 {event(kWaitDurationIdentifier, "wait", op.wait),
                  event(kOpBackgroundIdentifier, "bg", op.opBackground,
                        items(kOpBackgroundNameIdentifier, op.opBackgroundNames)),
                  event(kWaitBackgroundIdentifier, "wait bg", op.waitBackground,
                        items(kWaitBackgroundNameIdentifier, op.waitBackgroundNames)),
                  event(kResourceMaskIdentifier, "resources", op.mask)});
}

// A graph whose one averaged execution event holds the given op records.
inline GraphSummary graphWithOps(std::string graphName, std::vector<ProfileEvent> ops) {
    GraphSummary graph;
    graph.graphName = std::move(graphName);
    graph.netRunUs = 1000;
    graph.events.push_back(event(0, "Accelerator", 1000, std::move(ops)));
    return graph;
}

// A trace reader whose execute averages are the given graphs, as loading leaves them.
struct LintingReader {
    explicit LintingReader(std::vector<GraphSummary> graphs = {}) {
        reader.executeStats.average = std::move(graphs);
    }
    VekProfileLogReaderChrometrace reader{"log.bin", VisibilityLevel(5)};
};

// One trace event as "lane name @ts +dur", then " cname=..." and " res=..."
// when present; the lane is the first letter of the thread's name.
inline std::string sliceText(const std::string& lane, const rapidjson::Value& e) {
    std::string repaired;
    std::string line = lane.substr(0, 1) + " " + std::string(validUtf8(e["name"].GetString(), repaired)) +
                       " @" + std::to_string(e["ts"].GetUint64()) + " +" + std::to_string(e["dur"].GetUint64());
    if (e.HasMember("cname")) line += std::string(" cname=") + e["cname"].GetString();
    if (e["args"].HasMember("Resources")) line += std::string(" res=") + e["args"]["Resources"].GetString();
    return line;
}

// Builds the exact trace of the graphs and gives one line per event, checking
// on the way what every event shares, its members' order included.
inline std::vector<std::string> exactSlices(std::vector<GraphSummary> graphs) {
    LintingReader linting(std::move(graphs));
    rapidjson::Document document;
    document.SetObject();
    EXPECT_TRUE(buildTraceDocument(linting.reader, document));
    EXPECT_EQ(document.MemberCount(), 1u);
    if (!document.HasMember("traceEvents") || !document["traceEvents"].IsArray()) {
        ADD_FAILURE() << "no \"traceEvents\" array";
        return {};
    }
    std::vector<std::string> lines;
    for (const rapidjson::Value& e : document["traceEvents"].GetArray()) {
        EXPECT_EQ(e["pid"].GetUint64(), 0u);
        EXPECT_STREQ(e["ph"].GetString(), "X");
        EXPECT_TRUE(e["ts"].IsUint64() && e["dur"].IsUint64());
        EXPECT_EQ(e["args"]["Duration"].GetUint64(), e["dur"].GetUint64());
        std::string keys;
        for (const auto& member : e.GetObject()) keys += std::string(member.name.GetString()) + " ";
        for (const auto& member : e["args"].GetObject()) keys += member.name.GetString();
        EXPECT_EQ(keys, std::string("name pid tid ph ts dur ") + (e.HasMember("cname") ? "cname " : "") +
                            "args Duration" + (e["args"].HasMember("Resources") ? "Resources" : ""));
        lines.push_back(sliceText(e["tid"].GetString(), e));
    }
    return lines;
}

}  // namespace testlinting
}  // namespace profiling
}  // namespace vek
