#include <string>
#include <utility>

#include "logging/Log.h"
#include "reader/VekProfileLogReader.h"
#include "stats/QueueWaits.h"
#include "stats/Statistics.h"

namespace vek {
namespace profiling {
namespace {

GraphSummary withGraphName(const std::string& graphName, StatSummary&& summary) {
    return GraphSummary{graphName, summary.netRunUs, summary.auxValue, std::move(summary.events)};
}

// Average, maximum and minimum of every graph, each pass over all graphs in
// the order the graphs were first seen.
SummaryLists summarize(const std::vector<GraphSamples>& graphs) {
    SummaryLists lists;
    lists.average.reserve(graphs.size());
    lists.maximum.reserve(graphs.size());
    lists.minimum.reserve(graphs.size());
    for (const GraphSamples& graph : graphs) {
        lists.average.push_back(withGraphName(graph.graphName, averageOf(graph.samples)));
    }
    for (const GraphSamples& graph : graphs) {
        lists.maximum.push_back(withGraphName(graph.graphName, maximumOf(graph.samples)));
    }
    for (const GraphSamples& graph : graphs) {
        lists.minimum.push_back(withGraphName(graph.graphName, minimumOf(graph.samples)));
    }
    return lists;
}

void reportAbandonedQueueWaits(std::string& diagnostics) {
    const std::string text = kQueueWaitDiagnostic;
    diagnostics += text;
    vekLog(kLogWarn, "%s", text.substr(0, text.size() - 1).c_str());
}

}  // namespace

void VekProfileLogReader::buildStatistics() {
    executeStats = summarize(executions);
    applyBinarySectionStats = summarize(applyBinarySections);
    finalizeAfterUpdatesStats = summarize(finalizeAfterUpdates);

    averageQueueWaits.clear();
    maximumQueueWaits.clear();
    minimumQueueWaits.clear();
    if (!hostRoundTrip) return;
    // Each list is built or abandoned on its own; an abandoned list leaves the
    // report without the queue-wait-free figures of that statistic.
    if (!collectQueueWaitSeries(executions, averageQueueWaits)) {
        reportAbandonedQueueWaits(loaderDiagnostics);
    }
    if (!collectQueueWaitValues(executeStats.maximum, maximumQueueWaits)) {
        reportAbandonedQueueWaits(loaderDiagnostics);
    }
    if (!collectQueueWaitValues(executeStats.minimum, minimumQueueWaits)) {
        reportAbandonedQueueWaits(loaderDiagnostics);
    }
}

}  // namespace profiling
}  // namespace vek
