// The text summary: the log header followed by per-phase statistics, each
// section with the detail lines of the events behind it.
#include <fstream>
#include <iomanip>
#include <iostream>
#include <locale>
#include <sstream>

#include "csv/EventValueText.h"
#include "logging/Log.h"
#include "reader/VekProfileLogReader.h"
#include "stats/PrintTimeFigures.h"
#include "stats/TextBuffer.h"
#include "stats/TextLayout.h"

namespace vek {
namespace profiling {
namespace {

using text::emptyLine;
using text::graphLine;
using text::indent;
using text::netRunLine;
using text::title;

// Summary lists by statistic, in the order the report prints them.
struct StatisticSection {
    const char* title;
    size_t underline;
    const std::vector<GraphSummary>& graphs;
};

void writeInitSection(VekProfileLogReader& reader, std::ostream& out) {
    title(out, "Init Stats:", 11);
    netRunLine(out, reader.initDuration);
    if (reader.hasInitEvents) {
        reader.writeBackendSection(out, reader.initEvents, 1);
    } else if (reader.hasBinaryInit) {
        reader.writeBackendSection(out, reader.binaryInitEvents, 1);
    }
    emptyLine(out);
}

void writeComposeSection(VekProfileLogReader& reader, std::ostream& out) {
    title(out, "Compose Graphs Stats:", 14);
    netRunLine(out, reader.composeDuration);
    emptyLine(out);
}

void writeFinalizeSection(VekProfileLogReader& reader, std::ostream& out) {
    title(out, "Finalize Stats:", 15);
    if (reader.finalizes.empty()) {
        emptyLine(out);
        return;
    }
    size_t index = 0;
    for (const NamedSample& finalize : reader.finalizes) {
        graphLine(out, index++, finalize.graphName);
        netRunLine(out, finalize.netRunUs);
        if (reader.hasFinalizeEvents) reader.writeBackendSection(out, finalize.events, 1);
        emptyLine(out);
    }
}

void writeDeinitSection(VekProfileLogReader& reader, std::ostream& out) {
    title(out, "De-Init Stats:", 14);
    netRunLine(out, reader.deinitDuration);
    reader.writeBackendSection(out, reader.deinitEvents, 1);
    emptyLine(out);
}

std::string contextCallLabel(const std::string& name) {
    if (name == kContextGetBinarySizeLabel) return "Get Binary Size";
    if (name == kContextGetBinaryLabel) return "Get Binary";
    return std::string();
}

void writeContextRetrievalSection(VekProfileLogReader& reader, std::ostream& out) {
    if (!reader.hasContextBinaryCalls) return;
    title(out, "Context Retrieval Stats:", 24);
    for (const std::string& name : reader.contextBinaryCallOrder) {
        const auto found = reader.contextBinaryCalls.find(name);
        if (found == reader.contextBinaryCalls.end()) continue;
        out << contextCallLabel(name) << ":\n";
        netRunLine(out, found->second.netRunUs);
        emptyLine(out);
    }
}

void writeContextSectionBlock(std::ostream& out, const char* heading, size_t underline,
                              const std::map<std::string, StatSummary>& byLabel) {
    title(out, heading, underline);
    for (const auto& [label, summary] : byLabel) {
        out << label << ":\n";
        netRunLine(out, summary.netRunUs);
        emptyLine(out);
    }
}

void writeContextSectionRetrievalSection(VekProfileLogReader& reader, std::ostream& out) {
    if (!reader.hasContextSectionCalls) return;
    const ContextSectionStats stats = contextSectionStats(reader.contextSectionCalls);
    writeContextSectionBlock(out, "Context Section Retrieval Stats (Average):", 47, stats.average);
    writeContextSectionBlock(out, "Context Section Retrieval Stats (Min):", 42, stats.minimum);
    writeContextSectionBlock(out, "Context Section Retrieval Stats (Max):", 42, stats.maximum);
}

void writeExecuteOverallSection(VekProfileLogReader& reader, std::ostream& out) {
    if (!reader.hasNetRun) return;
    const std::optional<float> rate = inferencesPerSecond(reader.netRunEvents);
    if (!rate) return;
    title(out, "Execute Stats (Overall):", 24);
    std::ostringstream number;
    number.imbue(std::locale::classic());
    number << std::fixed << std::setprecision(4) << *rate;
    indent(out, 1);
    out << "NetRun IPS (includes IO and misc. time): " << number.str() << " inf/sec \n";
    emptyLine(out);
}

// Execute average, minimum or maximum; `queueWaitFree` gives the round trip
// without queue wait for a graph, when the log has one.
template <typename QueueWaitFree>
void writeExecuteStatistic(VekProfileLogReader& reader, std::ostream& out, const char* heading,
                           const std::vector<GraphSummary>& graphs, QueueWaitFree queueWaitFree) {
    title(out, heading, 24);
    title(out, "Total Inference Time: ", 21);
    if (graphs.empty()) {
        emptyLine(out);
        return;
    }
    size_t index = 0;
    for (const GraphSummary& graph : graphs) {
        graphLine(out, index++, graph.graphName);
        indent(out, 1);
        out << "NetRun" << (reader.hostRoundTrip ? " (Host Round-Trip)" : "") << ": "
            << std::to_string(graph.netRunUs) << " us\n";
        if (reader.hostRoundTrip) {
            if (const std::optional<uint64_t> free = queueWaitFree(graph)) {
                indent(out, 1);
                out << "NetRun (Host Round-Trip excluding queue wait): " << std::to_string(*free)
                    << "\n";
            }
        }
        reader.writeBackendSection(out, graph.events, 1);
        emptyLine(out);
    }
}

// Saves the object events of every execution. Each top-level object event is
// saved once, and once more for each of its children: the repeated files are
// intended.
void saveExecutionObjectEvents(VekProfileLogReader& reader) {
    if (!reader.loadFlag) return;
    const auto save = [&reader](const ProfileEvent& event) {
        if (event.unit != kUnitObject) return;
        reader.writeObjectEventFile(event);
        for (size_t child = 0; child < event.children.size(); ++child) {
            reader.writeObjectEventFile(event);
        }
    };
    for (const GraphSamples& graph : reader.executions) {
        for (const ExecutionSample& sample : graph.samples) {
            for (const ProfileEvent& event : sample.events) save(event);
        }
    }
    // A summaries-only load kept just these, in the same order.
    for (const ProfileEvent& event : reader.executionObjectEvents) save(event);
}

void writeExecuteMinimumSection(VekProfileLogReader& reader, std::ostream& out) {
    writeExecuteStatistic(reader, out, "Execute Stats (Min):", reader.executeStats.minimum,
                          [&](const GraphSummary& graph) {
                              return roundTripExcludingQueueWait(graph, reader.minimumQueueWaits);
                          });
}

void writeExecuteMaximumSection(VekProfileLogReader& reader, std::ostream& out) {
    writeExecuteStatistic(reader, out, "Execute Stats (Max):", reader.executeStats.maximum,
                          [&](const GraphSummary& graph) {
                              return roundTripExcludingQueueWait(graph, reader.maximumQueueWaits);
                          });
}

void writeLibLoadSection(VekProfileLogReader& reader, std::ostream& out) {
    if (!reader.hasLibLoad) return;
    const std::optional<uint64_t> latency = backendLatency(reader.libLoadEvents);
    if (!latency) return;
    title(out, "Dynamic Lib Load Stats:", 24);
    indent(out, 1);
    out << "Backend Latency: " << std::to_string(*latency) << " us\n";
    emptyLine(out);
    // From here on the stream shows floating-point values with 4 decimals.
    out << std::fixed << std::setprecision(4);
}

// A per-graph statistic of apply-binary-section or finalize-after-updates calls.
void writeGraphStatistic(VekProfileLogReader& reader, std::ostream& out,
                         const StatisticSection& section) {
    title(out, section.title, section.underline);
    size_t index = 0;
    for (const GraphSummary& graph : section.graphs) {
        graphLine(out, index++, graph.graphName);
        netRunLine(out, graph.netRunUs);
        reader.writeBackendSection(out, graph.events, 1);
        emptyLine(out);
    }
}

void writeApplyBinarySectionSections(VekProfileLogReader& reader, std::ostream& out) {
    if (!reader.hasApplyBinarySections) return;
    const SummaryLists& stats = reader.applyBinarySectionStats;
    writeGraphStatistic(reader, out, {"ApplyBinarySection Stats (Average):", 35, stats.average});
    writeGraphStatistic(reader, out, {"ApplyBinarySection Stats (Min):", 35, stats.minimum});
    writeGraphStatistic(reader, out, {"ApplyBinarySection Stats (Max):", 35, stats.maximum});
}

void writeFinalizeAfterUpdatesSections(VekProfileLogReader& reader, std::ostream& out) {
    if (!reader.hasFinalizeAfterUpdates) return;
    const SummaryLists& stats = reader.finalizeAfterUpdatesStats;
    writeGraphStatistic(reader, out,
                        {"FinalizeAfterTensorUpdates Stats (Average):", 45, stats.average});
    writeGraphStatistic(reader, out,
                        {"FinalizeAfterTensorUpdates Stats (Min):", 40, stats.minimum});
    writeGraphStatistic(reader, out,
                        {"FinalizeAfterTensorUpdates Stats (Max):", 40, stats.maximum});
}

void writeUpdateBinarySectionSection(VekProfileLogReader& reader, std::ostream& out) {
    if (!reader.hasUpdateBinarySection) return;
    title(out, "UpdateBinarySection Stats:", 32);
    if (reader.updateBinarySections.empty()) return;
    const NamedSample& update = reader.updateBinarySections.front();
    netRunLine(out, update.netRunUs);
    if (!update.events.empty()) reader.writeBackendSection(out, update.events, 1);
    emptyLine(out);
}

void writeFullReport(VekProfileLogReader& reader, std::ostream& out) {
    reader.printLeadingSections(out);
    writeContextRetrievalSection(reader, out);
    writeContextSectionRetrievalSection(reader, out);
    writeExecuteOverallSection(reader, out);
    reader.printExecuteAverage(out);
    writeExecuteMinimumSection(reader, out);
    writeExecuteMaximumSection(reader, out);
    writeLibLoadSection(reader, out);
    writeApplyBinarySectionSections(reader, out);
    writeFinalizeAfterUpdatesSections(reader, out);
}

// About how long the CSV export will be: a row per call and per exported
// event of every per-graph call (each row some 64 characters), so that the
// text is built without growing its buffer.
size_t expectedCsvSize(const VekProfileLogReader& reader) {
    constexpr size_t kRowLength = 72;
    size_t rows = 64;
    for (const auto* list : {&reader.executions, &reader.applyBinarySections,
                             &reader.finalizeAfterUpdates}) {
        for (const GraphSamples& graph : *list) {
            for (const ExecutionSample& sample : graph.samples) {
                rows += 1 + sample.events.size();
                for (const ProfileEvent& event : sample.events) rows += event.children.size();
            }
        }
    }
    return rows * kRowLength;
}

// The text a failed stream reports, by its state bits.
std::string streamStateText(const std::ios& stream) {
    if (stream.bad()) return "ios_base::badbit set";
    if (stream.fail()) return "ios_base::failbit set";
    return "ios_base::eofbit set";
}

// The detail lines of one list of events; children follow their parent one
// level deeper, object events are saved instead of listed.
void writeBackendLines(VekProfileLogReader& reader, std::ostream& out, EventSpan events,
                       uint64_t level) {
    for (const ProfileEvent& event : events) {
        if (event.unit != kUnitObject) {
            indent(out, level);
            if (level == 1) {
                out << "Backend (" << event.name << "): ";
            } else {
                out << event.name << ": ";
            }
            out << eventValueToString(event.value.dataType, event.value.payload)
                << unitSuffixLower(event.unit) << "\n";
        } else if (reader.loadFlag) {
            reader.writeObjectEventFile(event);
        }
        writeBackendLines(reader, out, event.children, level + 1);
    }
}

}  // namespace

void VekProfileLogReader::printHeaderSection(std::ostream& out) { out << printHeader() << "\n"; }

void VekProfileLogReader::printLeadingSections(std::ostream& out) {
    title(out, "Vek Init/Prepare/Finalize/De-Init/Execute/Lib-Load Statistics:", 60);
    writeInitSection(*this, out);
    writeComposeSection(*this, out);
    writeFinalizeSection(*this, out);
    writeDeinitSection(*this, out);
}

void VekProfileLogReader::printExecuteAverage(std::ostream& out) {
    writeExecuteStatistic(*this, out, "Execute Stats (Average):", executeStats.average,
                          [this](const GraphSummary& graph) {
                              return roundTripExcludingAverageQueueWait(graph, averageQueueWaits);
                          });
    if (!executeStats.average.empty()) saveExecutionObjectEvents(*this);
}

void VekProfileLogReader::writeBackendSection(std::ostream& out,
                                              const std::vector<ProfileEvent>& events,
                                              uint64_t level) {
    writeBackendLines(*this, out, events, level);
}

void VekProfileLogReader::writeReportTo(std::ostream& report, std::ostream* csv) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    printHeaderSection(text);
    if (loraAdapterUpdaterMode) {
        writeUpdateBinarySectionSection(*this, text);
    } else {
        writeFullReport(*this, text);
    }
    TextStream csvText;
    if (csv != nullptr) {
        csvText.imbue(std::locale::classic());
        csvText.reserve(expectedCsvSize(*this));
        writeCsvExport(csvText);
    }

    report << text.str() << std::flush;
    if (csv != nullptr) {
        const std::string_view rows = csvText.text();
        csv->write(rows.data(), static_cast<std::streamsize>(rows.size()));
    }
}

namespace {

// The CSV export lists every call, which a summaries-only load did not keep:
// it is refused rather than written short.
bool refusesCsvExport(const VekProfileLogReader& reader) {
    if (reader.loadScope != LoadScope::SummariesOnly) return false;
    vekLog(kLogError, "The CSV export lists every call: load the log in full for it.");
    return true;
}

}  // namespace

bool VekProfileLogReader::writeOutput(const std::string& outputPath) {
    if (!outputPath.empty() && refusesCsvExport(*this)) return false;
    // The CSV export extends an existing file: every run appends its rows.
    std::ofstream csvFile;
    if (!outputPath.empty()) {
        csvFile.open(outputPath, std::ios::out | std::ios::app);
        if (!csvFile.is_open()) {
            vekLog(kLogError, "Invalid output file: [%s]", outputPath.c_str());
            return false;
        }
    }
    writeReportTo(std::cout, csvFile.is_open() ? &csvFile : nullptr);
    if (csvFile.is_open()) {
        csvFile.close();
        if (csvFile.fail()) throw std::ios_base::failure(streamStateText(csvFile));
    }
    return true;
}

bool writeSummary(IVekProfileLogReader<VisibilityLevel>* reader, std::ostream& report,
                  std::ostream* csv) {
    auto* own = dynamic_cast<VekProfileLogReader*>(reader);
    if (own == nullptr || (csv != nullptr && refusesCsvExport(*own))) return false;
    own->writeReportTo(report, csv);
    if (csv != nullptr) csv->flush();
    return report.good() && (csv == nullptr || csv->good());
}

}  // namespace profiling
}  // namespace vek
