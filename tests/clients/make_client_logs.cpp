// vek-test-client-logs [DIR]: writes the logs whose portable traces the trace clients open.
//   DIR/no-executions.log  a header and a compose call: a trace without slices
//   DIR/wide.log           10 graphs x 2,500 op records: 100,000 slices
#include <string>
#include <vector>

#include "support/LogWriter.h"

using namespace vek::profiling::testlog;

// Background work: an event with a name and no value.
static EventSpec work(const char* name, uint32_t id) { EventSpec e; e.name = name; return e.id(id); }

// Op i waits and runs: four slices. Every 7th op's background work runs on
// over the next ops; every 11th op's wait background outlasts the wait. Some
// names carry bytes that a strict reader refuses as they are.
static EventSpec opRecord(int graph, int i) {
    const uint64_t duration = 20 + (i * 37 + graph) % 500, wait = 1 + i % 40;
    std::string name = "block_" + std::to_string(i / 10) + "/Conv2d_" + std::to_string(i);
    if (i % 97 == 0) name += "_\xFF\xC3(";
    if (i % 89 == 0) name += "\t\x01\x7F";
    if (i % 83 == 0) name += " \xC3\xA9t\xC3\xA9 \xE6\x97\xA5";
    return EventSpec::u64(name, duration, 1, 404).withChildren(
        {EventSpec::u64("wait", wait, 1, 5001),
         EventSpec::u64("background", i % 7 == 0 ? duration * 5 : duration / 2, 1, 5002)
             .withChildren({work("DMA prefetch", 5005), work(i % 5 ? "Bias load" : "Bias \x80load", 5005)}),
         EventSpec::u64("wait background", i % 11 == 0 ? wait + duration / 3 : wait / 2, 1, 5003)
             .withChildren({work("Weights load", 5006)}),
         EventSpec::u64("resources", 1 + i % 7, 6, 5004)});
}

int main(int argc, char** argv) {
    const std::string dir = argc == 2 ? argv[1] : ".";
    const HeaderSpec header = HeaderSpec{}.tool("vek-net-run", "v2.19.0").backendText("VEK NPU backend (linting profile)");
    LogWriter empty, wide;
    empty.chunk().header(header).message(MessageSpec(kCompose).times(100, 200));
    empty.writeTo(dir + "/no-executions.log");
    wide.chunk().header(header);
    for (int graph = 0; graph < 10; ++graph) {
        std::vector<EventSpec> ops;
        for (int i = 0; i < 2500; ++i) ops.push_back(opRecord(graph, i));
        const uint64_t start = 1000 + graph * 1000000ull;
        wide.chunk().message(MessageSpec(kExecute).graph("graph_" + std::to_string(graph)).times(start, start + 900000)
            .withEvents({EventSpec::u64("Accelerator", 800000, 1, 1).withChildren(std::move(ops))}));
    }
    wide.writeTo(dir + "/wide.log");  // throws, and so ends the run, when it cannot
}
