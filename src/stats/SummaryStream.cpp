#include "stats/SummaryStream.h"

#include <utility>

#include "log/EventCopy.h"

namespace vek {
namespace profiling {
namespace {

GraphSummary summaryOf(const std::string& graphName, uint64_t netRunUs, uint64_t auxValue,
                       std::vector<ProfileEvent>&& events) {
    return GraphSummary{graphName, netRunUs, auxValue, std::move(events)};
}

}  // namespace

size_t SummaryStream::add(const std::string& graphName, uint64_t netRunUs, uint64_t auxValue,
                          EventSpan events) {
    const size_t graphsBefore = graphs_.size();
    GraphFold& graph = index_.findOrAppend(graphs_, graphName);
    if (graphs_.size() != graphsBefore) graph.average = AverageBuilder(*texts_);

    graph.average.add(netRunUs, auxValue, events);
    // Ties go to the later call, for the maximum and the minimum alike; calls
    // of 0 us are no candidates for the minimum.
    if (netRunUs >= graph.maximum.netRunUs) {
        graph.maximum = ChosenCall{netRunUs, auxValue, lastingCopies(events, *texts_)};
    }
    if (netRunUs != 0 && netRunUs <= graph.minimum.netRunUs) {
        graph.minimum = ChosenCall{netRunUs, auxValue, lastingCopies(events, *texts_)};
    }
    if (keepObjectEvents_) {
        for (const ProfileEvent& event : events) {
            if (event.unit == kUnitObject) {
                graph.objectEvents.push_back(lastingCopy(event, *texts_));
            }
        }
    }
    return static_cast<size_t>(&graph - graphs_.data());
}

SummaryLists SummaryStream::finish(std::vector<ProfileEvent>* objectEvents) {
    SummaryLists lists;
    lists.average.reserve(graphs_.size());
    lists.maximum.reserve(graphs_.size());
    lists.minimum.reserve(graphs_.size());
    for (GraphFold& graph : graphs_) {
        StatSummary average = graph.average.finish();
        lists.average.push_back(summaryOf(graph.graphName, average.netRunUs, average.auxValue,
                                          std::move(average.events)));
        lists.maximum.push_back(summaryOf(graph.graphName, graph.maximum.netRunUs,
                                          graph.maximum.auxValue,
                                          std::move(graph.maximum.events)));
        lists.minimum.push_back(summaryOf(graph.graphName, graph.minimum.netRunUs,
                                          graph.minimum.auxValue,
                                          std::move(graph.minimum.events)));
        if (objectEvents != nullptr) {
            for (ProfileEvent& event : graph.objectEvents) objectEvents->push_back(std::move(event));
        }
    }
    graphs_.clear();
    index_ = GraphIndex();
    return lists;
}

}  // namespace profiling
}  // namespace vek
