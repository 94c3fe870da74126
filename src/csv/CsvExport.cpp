// The comma-separated export of every profiled phase and its backend events.
//
// Fields are joined by a bare comma and never quoted or escaped: a comma in a
// graph name or an event name shifts the columns of that row, as consumers of
// this export expect. Every row ends with a line end and a flush; the caller
// composes the export in memory, so the flushes cost nothing there.
#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <iomanip>
#include <locale>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "VekVersion.h"
#include "csv/EventValueText.h"
#include "reader/VekProfileLogReader.h"
#include "stats/PrintTimeFigures.h"

namespace vek {
namespace profiling {
namespace {

constexpr const char* kColumnHeader =
    "Msg Timestamp, Message, Time, Unit of Measurement, Timing Source, Event Level, "
    "Event Identifier";

void endRow(std::ostream& out) {
    out << '\n';
    out.flush();
}

// The fields of a phase row up to and including its Event Level; the caller
// appends the identifier (",null" or a graph label) and ends the row.
void writePhaseRowStart(std::ostream& out, uint64_t timestamp, const char* phaseLiteral,
                        uint64_t time, const char* sourceLiteral) {
    out << timestamp << phaseLiteral << time << ",US" << sourceLiteral << ",ROOT";
}

void writeNullPhaseRow(std::ostream& out, uint64_t timestamp, const char* phaseLiteral,
                       uint64_t time) {
    writePhaseRowStart(out, timestamp, phaseLiteral, time, ",NETRUN");
    out << ",null";
    endRow(out);
}

void appendNumber(std::string& text, uint64_t number) {
    char digits[20];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, number);
    text.append(digits, end.ptr);
}

// There is a row per event of every call, so a row is composed in `row` and
// written in one piece: the stream's own formatting would cost more than all
// the rest of the export.
void writeBackendRow(std::ostream& out, std::string& row, const ProfileEvent& event,
                     uint64_t timestamp, const std::string& messageWord, const char* levelLiteral) {
    row.clear();
    appendNumber(row, timestamp);
    row += ',';
    row += messageWord;
    row += ',';
    if (event.value.dataType == kDataTypeUInt64) {
        appendNumber(row, event.value.payload);
    } else {
        row += eventValueToString(event.value.dataType, event.value.payload);
    }
    row += ',';
    row += unitNameUpper(event.unit);
    row += ",BACKEND";
    row += levelLiteral;
    row += event.name.str();
    row += '\n';
    out.write(row.data(), static_cast<std::streamsize>(row.size()));
    out.flush();  // as endRow
}

void writeInitRows(VekProfileLogReader& reader, std::ostream& out) {
    writeNullPhaseRow(out, reader.initTimestamp, ",INIT,", reader.initDuration);
    if (reader.hasInitEvents) {
        reader.writeCsvRows(out, reader.initEvents, reader.initTimestamp, "INIT");
    } else if (reader.hasBinaryInit) {
        reader.writeCsvRows(out, reader.binaryInitEvents, reader.initTimestamp, "INIT");
    }
}

void writeComposeRow(const VekProfileLogReader& reader, std::ostream& out) {
    writeNullPhaseRow(out, reader.composeTimestamp, ",COMPOSE GRAPHS,", reader.composeDuration);
}

void writeGraphLabel(std::ostream& out, size_t graphIndex, const std::string& graphName) {
    out << ",Graph " << graphIndex << ": " << graphName;
}

void writeFinalizeRows(VekProfileLogReader& reader, std::ostream& out) {
    for (size_t i = 0; i < reader.finalizes.size(); ++i) {
        const NamedSample& record = reader.finalizes[i];
        writePhaseRowStart(out, record.auxValue, ",FINALIZE,", record.netRunUs, ",NETRUN");
        writeGraphLabel(out, i, record.graphName);
        endRow(out);
        if (reader.hasFinalizeEvents) {
            reader.writeCsvRows(out, record.events, record.auxValue, "FINALIZE");
        }
    }
}

void writeDeinitRows(VekProfileLogReader& reader, std::ostream& out) {
    writeNullPhaseRow(out, reader.deinitTimestamp, ",DE-INIT,", reader.deinitDuration);
    reader.writeCsvRows(out, reader.deinitEvents, reader.deinitTimestamp, "DE-INIT");
}

// One row per execution of every graph, each followed by its backend rows.
// Graph numbers count from 0 within the list.
void writeGraphSampleRows(VekProfileLogReader& reader, std::ostream& out,
                          const std::vector<GraphSamples>& graphs, const char* phaseLiteral,
                          const std::string& messageWord) {
    for (size_t i = 0; i < graphs.size(); ++i) {
        const GraphSamples& graph = graphs[i];
        for (const ExecutionSample& sample : graph.samples) {
            writePhaseRowStart(out, sample.auxValue, phaseLiteral, sample.netRunUs, ",NETRUN");
            writeGraphLabel(out, i, graph.graphName);
            endRow(out);
            reader.writeCsvRows(out, sample.events, sample.auxValue, messageWord);
        }
    }
}

// The rate switches the stream to six decimals, and the setting stays for the
// rest of the export.
void writeExecuteRateRow(const VekProfileLogReader& reader, std::ostream& out) {
    if (!reader.hasNetRun) return;
    const std::optional<float> rate = inferencesPerSecond(reader.netRunEvents);
    if (!rate) return;
    out << std::fixed << std::setprecision(6);
    out << reader.netRunTimestamp << ",EXECUTE IPS," << *rate << ",INF/SEC,NETRUN,ROOT,null";
    endRow(out);
}

void writeLibLoadRow(const VekProfileLogReader& reader, std::ostream& out) {
    if (!reader.hasLibLoad) return;
    // The payload is written as an unsigned count whatever its type code says.
    const std::optional<uint64_t> latency = backendLatency(reader.libLoadEvents);
    if (!latency) return;
    writeNullPhaseRow(out, reader.libLoadTimestamp, ",DLOPEN LATENCY,", *latency);
}

void writeMethodRow(std::ostream& out, const std::string& label, const ExecutionSample& sample) {
    out << sample.auxValue << ',' << label << ',' << sample.netRunUs
        << ",US,NETRUN,ROOT,null";
    endRow(out);
}

// The labels of the single timings in the order first recorded; a label the
// order lacks still gets its row, after the others, sorted. The map holds at
// most a few labels, so the linear look-ups cost nothing.
std::vector<const std::string*> binaryCallLabels(const VekProfileLogReader& reader) {
    std::vector<const std::string*> labels;
    labels.reserve(reader.contextBinaryCalls.size());
    auto listed = [&labels](const std::string& label) {
        return std::any_of(labels.begin(), labels.end(),
                           [&label](const std::string* known) { return *known == label; });
    };
    for (const std::string& label : reader.contextBinaryCallOrder) {
        if (reader.contextBinaryCalls.count(label) != 0 && !listed(label)) labels.push_back(&label);
    }
    const auto firstUnordered = labels.end() - labels.begin();
    for (const auto& entry : reader.contextBinaryCalls) {
        if (!listed(entry.first)) labels.push_back(&entry.first);
    }
    std::sort(labels.begin() + firstUnordered, labels.end(),
              [](const std::string* a, const std::string* b) { return *a < *b; });
    return labels;
}

// The context calls: the single timings, then every sample of the timing
// series, by label.
void writeMethodRows(const VekProfileLogReader& reader, std::ostream& out) {
    for (const std::string* label : binaryCallLabels(reader)) {
        writeMethodRow(out, *label, reader.contextBinaryCalls.at(*label));
    }
    using SectionEntry = std::pair<const std::string, std::vector<ExecutionSample>>;
    std::vector<const SectionEntry*> series;
    series.reserve(reader.contextSectionCalls.size());
    for (const SectionEntry& entry : reader.contextSectionCalls) series.push_back(&entry);
    std::sort(series.begin(), series.end(),
              [](const SectionEntry* a, const SectionEntry* b) { return a->first < b->first; });
    for (const SectionEntry* entry : series) {
        for (const ExecutionSample& sample : entry->second) {
            writeMethodRow(out, entry->first, sample);
        }
    }
}

void writeNormalLayout(VekProfileLogReader& reader, std::ostream& out) {
    writeInitRows(reader, out);
    writeComposeRow(reader, out);
    writeFinalizeRows(reader, out);
    writeDeinitRows(reader, out);
    writeGraphSampleRows(reader, out, reader.executions, ",EXECUTE,", "EXECUTE");
    writeExecuteRateRow(reader, out);
    writeLibLoadRow(reader, out);
    writeGraphSampleRows(reader, out, reader.applyBinarySections, ",APPLY BINARY SECTION,",
                         "APPLYBINARY");
    writeGraphSampleRows(reader, out, reader.finalizeAfterUpdates,
                         ",FINALIZE AFTER TENSOR UPDATES,", "FINALIZE_AFTER_TENSOR_UPDATES");
    writeMethodRows(reader, out);
}

// The updater tool's log: only the first update-binary-section record is
// exported; later records are left out by design.
void writeLoraUpdaterLayout(VekProfileLogReader& reader, std::ostream& out) {
    if (reader.updateBinarySections.empty()) return;
    const NamedSample& record = reader.updateBinarySections.front();
    writePhaseRowStart(out, record.auxValue, ",UPDATE BINARY SECTION,", record.netRunUs, ",LABU");
    out << ",null";
    endRow(out);
    reader.writeCsvRows(out, record.events, record.auxValue, "UPDATE_BINARY_SECTION");
}

}  // namespace

void VekProfileLogReader::writeCsvExport(std::ostream& out) {
    // Numbers must come out plain whatever locale the host process runs under.
    out.imbue(std::locale::classic());
    out << std::fixed << std::setprecision(0);
    writeCsvHeaderRows(out);
    out << kColumnHeader;
    endRow(out);
    if (loraAdapterUpdaterMode) {
        writeLoraUpdaterLayout(*this, out);
    } else {
        writeNormalLayout(*this, out);
    }
}

void VekProfileLogReader::writeCsvHeaderRows(std::ostream& out) {
    out << "input log file location, " << logFilePath;
    endRow(out);
    out << "vek-profile-viewer version, " << VEK_PROFILE_VIEWER_VERSION;
    endRow(out);
    out << toolName << " version, " << toolVersion;
    endRow(out);
    out << "Backend version, " << backend;
    endRow(out);
}

// Top-level events and their direct sub-events; object events are left out at
// both levels (their sub-events still count), deeper levels are not exported.
void VekProfileLogReader::writeCsvRows(std::ostream& out, std::vector<ProfileEvent> events,
                                       uint64_t messageTimestamp, const std::string& messageWord) {
    std::string row;
    for (const ProfileEvent& event : events) {
        if (event.unit != kUnitObject) {
            writeBackendRow(out, row, event, messageTimestamp, messageWord, ",ROOT,");
        }
        for (const ProfileEvent& child : event.children) {
            if (child.unit == kUnitObject) continue;
            writeBackendRow(out, row, child, messageTimestamp, messageWord, ",SUB-EVENT,");
        }
    }
}

}  // namespace profiling
}  // namespace vek
