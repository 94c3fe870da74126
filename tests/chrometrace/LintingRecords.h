// Builds averaged execute records with linting op records from code.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "chrometrace/LintingIdentifiers.h"
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

}  // namespace testlinting
}  // namespace profiling
}  // namespace vek
