#include "stats/SummaryStream.h"

#include <utility>

#include "log/EventConversion.h"

namespace vek {
namespace profiling {

SummaryStream::Fold SummaryStream::fold(const std::string& graphName, uint64_t netRunUs,
                                        uint64_t auxValue, const LogEventVector* events,
                                        EventStore& names, bool withoutInitEvents) {
    const size_t graphsBefore = graphs_.size();
    GraphFold& graph = index_.findOrAppend(graphs_, graphName);
    if (graphs_.size() != graphsBefore) graph.average = AverageBuilder(*lasting_);

    graph.average.add(netRunUs, auxValue, events, names, withoutInitEvents);
    if (keepObjectEvents_ && events != nullptr) {
        for (const fb::LogEvent* event : *events) {
            if (withoutInitEvents && event->identifier() == kInitEventIdentifier) continue;
            if (event->unit() == kUnitObject) {
                graph.objectEvents.push_back(convertEventForMessage(*event, names, *lasting_));
            }
        }
    }
    foldedNetRunUs_ = netRunUs;
    foldedAuxValue_ = auxValue;
    Fold fold;
    fold.position = static_cast<size_t>(&graph - graphs_.data());
    // Ties go to the later call, for the maximum and the minimum alike; calls
    // of 0 us are no candidates for the minimum.
    fold.longest = netRunUs >= graph.maximum.netRunUs;
    fold.shortest = netRunUs != 0 && netRunUs <= graph.minimum.netRunUs;
    return fold;
}

void SummaryStream::choose(const Fold& fold, EventSpan events) {
    GraphFold& graph = graphs_[fold.position];
    if (fold.longest) take(graph.maximum, events);
    if (fold.shortest) take(graph.minimum, events);
}

// The chosen call's events stay where they are: the call keeps the message's
// store rather than a copy of them.
void SummaryStream::take(ChosenCall& chosen, EventSpan events) {
    chosen.netRunUs = foldedNetRunUs_;
    chosen.auxValue = foldedAuxValue_;
    chosen.events.assign(events.begin(), events.end());
    messages_->release(std::exchange(chosen.store, messages_->holdCurrent()));
}

SummaryLists SummaryStream::finish(std::vector<std::shared_ptr<EventStore>>& stores,
                                   std::vector<ProfileEvent>* objectEvents) {
    SummaryLists lists;
    lists.average.reserve(graphs_.size());
    lists.maximum.reserve(graphs_.size());
    lists.minimum.reserve(graphs_.size());
    const auto summary = [&stores](const std::string& graphName, ChosenCall& chosen,
                                   uint64_t calls) {
        if (chosen.store != nullptr) stores.push_back(std::move(chosen.store));
        return GraphSummary{graphName, chosen.netRunUs, chosen.auxValue, std::move(chosen.events),
                            calls};
    };
    for (GraphFold& graph : graphs_) {
        const uint64_t calls = graph.average.count();
        StatSummary average = graph.average.finish();
        lists.average.push_back(GraphSummary{graph.graphName, average.netRunUs, average.auxValue,
                                             std::move(average.events), calls});
        lists.maximum.push_back(summary(graph.graphName, graph.maximum, calls));
        lists.minimum.push_back(summary(graph.graphName, graph.minimum, calls));
        if (objectEvents != nullptr) {
            for (ProfileEvent& event : graph.objectEvents) {
                objectEvents->push_back(std::move(event));
            }
        }
    }
    graphs_.clear();
    index_ = GraphIndex();
    return lists;
}

}  // namespace profiling
}  // namespace vek
