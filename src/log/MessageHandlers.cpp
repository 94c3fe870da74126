#include "log/MessageHandlers.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "log/EventConversion.h"
#include "reader/VekProfileLogReader.h"

namespace vek {
namespace profiling {
namespace {

// What every handler takes from a message before storing it.
struct CallTiming {
    uint64_t duration = 0;
    uint64_t timestamp = 0;
};

// A message is kept only when its visibility is below the reader's level.
bool isVisible(const VekProfileLogReader& reader, const fb::LogMessage& message) {
    return message.visibility() < static_cast<int8_t>(reader.visibilityLevel);
}

CallTiming timingOf(const fb::LogMessage& message) {
    // Both tables are required, so the verifier has made sure they exist.
    const uint64_t start = message.timing()->startTime();
    const uint64_t end = message.timing()->endTime();
    return CallTiming{end > start ? end - start : 0, message.stamp()->timestamp()};
}

std::vector<ProfileEvent> eventsOf(VekProfileLogReader& reader, const fb::LogMessage& message) {
    std::vector<ProfileEvent> events;
    convertEvents(message.events(), reader.eventStore, reader.internedStrings, events);
    return events;
}

// Stores a call that is kept once, overwriting the previous one.
bool recordSingleCall(VekProfileLogReader& reader, const fb::LogMessage& message,
                      uint64_t& timestamp, uint64_t& duration,
                      std::vector<ProfileEvent>* events, bool* presentFlag) {
    if (!isVisible(reader, message)) {
        return false;
    }
    const CallTiming timing = timingOf(message);
    timestamp = timing.timestamp;
    duration = timing.duration;
    if (events != nullptr) {
        *events = eventsOf(reader, message);
    }
    if (presentFlag != nullptr) {
        *presentFlag = true;
    }
    return true;
}

// Appends the call as a sample of its graph, grouping by graph name, and
// folds it into the graph's running average.
bool recordGraphSample(VekProfileLogReader& reader, const fb::LogMessage& message,
                       std::vector<GraphSamples>& list, GraphIndex& index,
                       std::vector<AverageBuilder>& averages,
                       std::vector<ProfileEvent> (*eventsFor)(VekProfileLogReader&,
                                                              const fb::LogMessage&)) {
    if (!isVisible(reader, message) || message.graphName() == nullptr) {
        return false;
    }
    const CallTiming timing = timingOf(message);
    std::vector<ProfileEvent> events = eventsFor(reader, message);
    GraphSamples& graph = index.findOrAppend(list, message.graphName()->str());
    graph.samples.push_back(ExecutionSample{timing.duration, timing.timestamp, std::move(events)});
    const auto position = static_cast<size_t>(&graph - list.data());
    if (averages.size() <= position) averages.resize(position + 1);
    averages[position].add(graph.samples.back());
    return true;
}

// The top-level events of an execution or finalisation, with the
// initialisation events (identifier 100) taken out.
struct SplitEvents {
    std::vector<ProfileEvent> init;
    std::vector<ProfileEvent> other;
};

SplitEvents splitEvents(std::vector<ProfileEvent> events) {
    SplitEvents split;
    const auto isInit = [](const ProfileEvent& event) {
        return event.identifier == kInitEventIdentifier;
    };
    // Most calls carry no initialisation events: keep their vector whole.
    if (std::none_of(events.begin(), events.end(), isInit)) {
        split.other = std::move(events);
        return split;
    }
    for (ProfileEvent& event : events) {
        auto& target = isInit(event) ? split.init : split.other;
        target.push_back(std::move(event));
    }
    return split;
}

// Once any message has carried initialisation events, every later execution
// or finalisation replaces them, even with none: the reports show the
// initialisation events of the last such call only.
void replaceInitEvents(VekProfileLogReader& reader, std::vector<ProfileEvent>& init) {
    if (!init.empty()) {
        reader.hasInitEvents = true;
    }
    if (reader.hasInitEvents) {
        reader.initEvents = std::move(init);
    }
}

std::vector<ProfileEvent> executionEvents(VekProfileLogReader& reader,
                                          const fb::LogMessage& message) {
    SplitEvents split = splitEvents(eventsOf(reader, message));
    replaceInitEvents(reader, split.init);
    return std::move(split.other);
}

bool hasInitEvent(const LogEventVector* events) {
    if (events == nullptr) return false;
    for (const fb::LogEvent* event : *events) {
        if (event->identifier() == kInitEventIdentifier) return true;
    }
    return false;
}

// A summaries-only load: the call is folded into its graph's running
// summaries as the log holds it, and nothing of it is kept but what they
// hold on to. Its events are converted only when something keeps them (the
// call is the longest or the shortest so far, or carries initialisation
// events), into a message store that the keepers hold.
bool foldGraphSample(VekProfileLogReader& reader, const fb::LogMessage& message,
                     SummaryStream& stream, bool isExecution) {
    if (!isVisible(reader, message) || message.graphName() == nullptr) {
        return false;
    }
    StreamedSummaries& streamed = *reader.streamed;
    const CallTiming timing = timingOf(message);
    const LogEventVector* logged = message.events();
    const std::string graphName = message.graphName()->str();
    const SummaryStream::Fold fold = stream.fold(graphName, timing.duration, timing.timestamp,
                                                 logged, reader.eventStore, isExecution);
    const bool withInitEvents = isExecution && hasInitEvent(logged);
    if (fold.longest || fold.shortest || withInitEvents) {
        streamed.events.clear();
        convertEventsForMessage(logged, reader.eventStore, streamed.messages.startMessage(),
                                streamed.events);
        SplitEvents split;
        if (isExecution) {
            split = splitEvents(std::move(streamed.events));
        } else {
            split.other = std::move(streamed.events);
        }
        if (fold.longest || fold.shortest) stream.choose(fold, split.other);
        if (withInitEvents) {
            streamed.messages.release(
                std::exchange(streamed.initEventsStore, streamed.messages.holdCurrent()));
            replaceInitEvents(reader, split.init);
        }
        streamed.events = std::move(split.other);  // its room serves the next message
    }
    if (isExecution && !withInitEvents && reader.hasInitEvents) {
        streamed.messages.release(std::exchange(streamed.initEventsStore, nullptr));
        reader.initEvents.clear();
    }
    if (isExecution) {
        streamed.executionQueueWaits.add(fold.position, graphName, findQueueWaits(logged));
    }
    return true;
}

const char* contextBinaryLabel(uint8_t methodType) {
    return methodType == kMethodContextGetBinarySize ? kContextGetBinarySizeLabel
                                                     : kContextGetBinaryLabel;
}

}  // namespace

bool recordExecution(VekProfileLogReader& reader, const fb::LogMessage& message) {
    if (reader.streamed) return foldGraphSample(reader, message, reader.streamed->executions, true);
    return recordGraphSample(reader, message, reader.executions, reader.executionIndex,
                             reader.runningAverages.executions, &executionEvents);
}

bool recordApplyBinarySection(VekProfileLogReader& reader, const fb::LogMessage& message) {
    const bool recorded =
        reader.streamed
            ? foldGraphSample(reader, message, reader.streamed->applyBinarySections, false)
            : recordGraphSample(reader, message, reader.applyBinarySections,
                                reader.applyBinarySectionIndex,
                                reader.runningAverages.applyBinarySections, &eventsOf);
    if (!recorded) {
        return false;
    }
    reader.hasApplyBinarySections = true;
    return true;
}

bool recordFinalizeAfterUpdates(VekProfileLogReader& reader, const fb::LogMessage& message) {
    const bool recorded =
        reader.streamed
            ? foldGraphSample(reader, message, reader.streamed->finalizeAfterUpdates, false)
            : recordGraphSample(reader, message, reader.finalizeAfterUpdates,
                                reader.finalizeAfterUpdateIndex,
                                reader.runningAverages.finalizeAfterUpdates, &eventsOf);
    if (!recorded) {
        return false;
    }
    reader.hasFinalizeAfterUpdates = true;
    return true;
}

bool recordFinalize(VekProfileLogReader& reader, const fb::LogMessage& message) {
    if (!isVisible(reader, message) || message.graphName() == nullptr) {
        return false;
    }
    const CallTiming timing = timingOf(message);
    SplitEvents split = splitEvents(eventsOf(reader, message));
    NamedSample& entry = reader.finalizeIndex.findOrAppend(reader.finalizes,
                                                           message.graphName()->str());
    entry.netRunUs = timing.duration;
    entry.auxValue = timing.timestamp;
    replaceInitEvents(reader, split.init);
    if (!split.other.empty()) {
        reader.hasFinalizeEvents = true;
    }
    // Before any finalisation has carried events of its own, the entry keeps
    // what it had.
    if (reader.hasFinalizeEvents) {
        entry.events = std::move(split.other);
    }
    if (message.methodType() == kMethodFinalize) {
        reader.hasFinalize = true;
    }
    return true;
}

bool recordBinaryInit(VekProfileLogReader& reader, const fb::LogMessage& message) {
    return recordSingleCall(reader, message, reader.binaryInitTimestamp,
                            reader.binaryInitDuration, &reader.binaryInitEvents,
                            &reader.hasBinaryInit);
}

bool recordDeinit(VekProfileLogReader& reader, const fb::LogMessage& message) {
    return recordSingleCall(reader, message, reader.deinitTimestamp, reader.deinitDuration,
                            &reader.deinitEvents, nullptr);
}

bool recordContextCreate(VekProfileLogReader& reader, const fb::LogMessage& message) {
    return recordSingleCall(reader, message, reader.contextCreateTimestamp,
                            reader.contextCreateDuration, nullptr, nullptr);
}

bool recordCompose(VekProfileLogReader& reader, const fb::LogMessage& message) {
    return recordSingleCall(reader, message, reader.composeTimestamp, reader.composeDuration,
                            nullptr, nullptr);
}

bool recordNetRun(VekProfileLogReader& reader, const fb::LogMessage& message) {
    return recordSingleCall(reader, message, reader.netRunTimestamp, reader.netRunDuration,
                            &reader.netRunEvents, &reader.hasNetRun);
}

bool recordLibLoad(VekProfileLogReader& reader, const fb::LogMessage& message) {
    return recordSingleCall(reader, message, reader.libLoadTimestamp, reader.libLoadDuration,
                            &reader.libLoadEvents, &reader.hasLibLoad);
}

bool recordContextBinaryCall(VekProfileLogReader& reader, const fb::LogMessage& message) {
    if (!isVisible(reader, message)) {
        return false;
    }
    const CallTiming timing = timingOf(message);
    const auto inserted =
        reader.contextBinaryCalls.try_emplace(contextBinaryLabel(message.methodType()));
    if (inserted.second) {
        reader.contextBinaryCallOrder.push_back(inserted.first->first);
    }
    ExecutionSample& call = inserted.first->second;
    call.netRunUs = timing.duration;
    call.auxValue = timing.timestamp;
    call.events.clear();
    reader.hasContextBinaryCalls = true;
    return true;
}

bool recordContextSectionCall(VekProfileLogReader& reader, const fb::LogMessage& message) {
    if (!isVisible(reader, message)) {
        return false;
    }
    const CallTiming timing = timingOf(message);
    reader.contextSectionCalls[kContextGetBinarySectionSizeLabel].push_back(
        ExecutionSample{timing.duration, timing.timestamp, {}});
    reader.hasContextSectionCalls = true;
    return true;
}

bool recordUpdateBinarySection(VekProfileLogReader& reader, const fb::LogMessage& message) {
    if (!isVisible(reader, message)) {
        return false;
    }
    const CallTiming timing = timingOf(message);
    reader.updateBinarySections.clear();
    reader.updateBinarySections.push_back(
        NamedSample{std::string(), timing.duration, timing.timestamp, eventsOf(reader, message)});
    reader.hasUpdateBinarySection = true;
    return true;
}

}  // namespace profiling
}  // namespace vek
