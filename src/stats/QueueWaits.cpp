#include "stats/QueueWaits.h"

#include <utility>

namespace vek {
namespace profiling {
namespace {

void noteIfQueueWait(const ProfileEvent& event, QueueWaitMatch& match) {
    if (event.identifier != kQueueWaitIdentifier) return;
    ++match.count;
    match.lastPayload = event.value.payload;
}

}  // namespace

QueueWaitMatch findQueueWaits(EventSpan events) {
    QueueWaitMatch match;
    for (const ProfileEvent& event : events) {
        noteIfQueueWait(event, match);
        for (const ProfileEvent& child : event.children) noteIfQueueWait(child, match);
    }
    return match;
}

QueueWaitMatch findQueueWaits(const LogEventVector* events) {
    QueueWaitMatch match;
    if (events == nullptr) return match;
    const auto note = [&match](const fb::LogEvent& event) {
        const LogEventFields fields(event);
        if (fields.scalar<uint32_t>(fb::LogEvent::VT_IDENTIFIER) != kQueueWaitIdentifier) return;
        ++match.count;
        match.lastPayload = payloadOf(fields);
    };
    for (const fb::LogEvent* event : *events) {
        if (event->identifier() == kInitEventIdentifier) continue;
        note(*event);
        if (const LogEventVector* children = event->subEvents()) {
            for (const fb::LogEvent* child : *children) note(*child);
        }
    }
    return match;
}

bool collectQueueWaitSeries(const std::vector<GraphSamples>& graphs,
                            std::vector<QueueWaitSeries>& series) {
    series.clear();
    series.reserve(graphs.size());
    for (const GraphSamples& graph : graphs) {
        QueueWaitSeries waits;
        waits.graphName = graph.graphName;
        waits.values.reserve(graph.samples.size());
        for (const ExecutionSample& sample : graph.samples) {
            const QueueWaitMatch match = findQueueWaits(sample.events);
            if (match.count != 1) {
                series.clear();
                return false;
            }
            waits.values.push_back(match.lastPayload);
        }
        series.push_back(std::move(waits));
    }
    return true;
}

void QueueWaitSeriesBuilder::add(size_t position, const std::string& graphName,
                                 QueueWaitMatch match) {
    if (abandoned_) return;
    if (match.count != 1) {
        abandoned_ = true;
        series_ = std::vector<QueueWaitSeries>();
        return;
    }
    if (position >= series_.size()) {
        series_.resize(position + 1);
        series_[position].graphName = graphName;
    }
    series_[position].values.push_back(match.lastPayload);
}

bool QueueWaitSeriesBuilder::finish(std::vector<QueueWaitSeries>& series) {
    series = abandoned_ ? std::vector<QueueWaitSeries>() : std::move(series_);
    const bool built = !abandoned_;
    *this = QueueWaitSeriesBuilder();
    return built;
}

bool collectQueueWaitValues(const std::vector<GraphSummary>& summaries,
                            std::vector<QueueWaitValue>& values) {
    values.clear();
    values.reserve(summaries.size());
    for (const GraphSummary& summary : summaries) {
        const QueueWaitMatch match = findQueueWaits(summary.events);
        if (match.count != 1) {
            values.clear();
            return false;
        }
        values.push_back(QueueWaitValue{summary.graphName, match.lastPayload});
    }
    return true;
}

}  // namespace profiling
}  // namespace vek
