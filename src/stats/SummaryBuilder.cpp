#include <cstddef>
#include <string>
#include <utility>

#include "logging/Log.h"
#include "reader/VekProfileLogReader.h"
#include "stats/QueueWaits.h"
#include "stats/Statistics.h"

namespace vek {
namespace profiling {
namespace {

GraphSummary withGraphName(const GraphSamples& graph, StatSummary&& summary) {
    return GraphSummary{graph.graphName, summary.netRunUs, summary.auxValue,
                        std::move(summary.events), graph.samples.size()};
}

// True when the running averages account for every sample of every graph, in
// the same order: then they hold what averaging the samples would give.
bool accountsForAll(const std::vector<AverageBuilder>& averages,
                    const std::vector<GraphSamples>& graphs) {
    if (averages.size() != graphs.size()) return false;
    for (size_t i = 0; i < graphs.size(); ++i) {
        if (averages[i].count() != graphs[i].samples.size()) return false;
    }
    return true;
}

// Average, maximum and minimum of every graph, each pass over all graphs in
// the order the graphs were first seen. The averages come from the running
// ones when those are complete (they are used up either way).
SummaryLists summarize(const std::vector<GraphSamples>& graphs,
                       std::vector<AverageBuilder>& runningAverages) {
    SummaryLists lists;
    lists.average.reserve(graphs.size());
    lists.maximum.reserve(graphs.size());
    lists.minimum.reserve(graphs.size());
    const bool running = accountsForAll(runningAverages, graphs);
    for (size_t i = 0; i < graphs.size(); ++i) {
        const GraphSamples& graph = graphs[i];
        StatSummary average = running ? runningAverages[i].finish() : averageOf(graph.samples);
        lists.average.push_back(withGraphName(graph, std::move(average)));
    }
    runningAverages.clear();
    for (const GraphSamples& graph : graphs) {
        lists.maximum.push_back(withGraphName(graph, maximumOf(graph.samples)));
    }
    for (const GraphSamples& graph : graphs) {
        lists.minimum.push_back(withGraphName(graph, minimumOf(graph.samples)));
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
    const bool summariesOnly = streamed != nullptr;
    std::vector<QueueWaitSeries> streamedSeries;
    bool streamedSeriesBuilt = false;
    if (summariesOnly) {
        executeStats = streamed->executions.finish(messageStores, &executionObjectEvents);
        applyBinarySectionStats = streamed->applyBinarySections.finish(messageStores);
        finalizeAfterUpdatesStats = streamed->finalizeAfterUpdates.finish(messageStores);
        streamedSeriesBuilt = streamed->executionQueueWaits.finish(streamedSeries);
        if (streamed->initEventsStore) {
            messageStores.push_back(std::move(streamed->initEventsStore));
        }
        streamed.reset();
    } else {
        executeStats = summarize(executions, runningAverages.executions);
        applyBinarySectionStats =
            summarize(applyBinarySections, runningAverages.applyBinarySections);
        finalizeAfterUpdatesStats =
            summarize(finalizeAfterUpdates, runningAverages.finalizeAfterUpdates);
    }

    averageQueueWaits.clear();
    maximumQueueWaits.clear();
    minimumQueueWaits.clear();
    if (!hostRoundTrip) return;
    // Each list is built or abandoned on its own; an abandoned list leaves the
    // report without the queue-wait-free figures of that statistic.
    const bool seriesBuilt = summariesOnly ? streamedSeriesBuilt
                                           : collectQueueWaitSeries(executions, averageQueueWaits);
    if (summariesOnly) averageQueueWaits = std::move(streamedSeries);
    if (!seriesBuilt) {
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
