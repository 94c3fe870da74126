// The concrete reader: owns the log input, the event model built by loadLog,
// the statistics computed after loading, and the text and CSV reports.
//
// The operations are defined by subsystem:
//   src/reader/VekProfileLogReader.cpp   construction, isAvailable
//   src/log/LogLoader.cpp                loadLog, readNextMessage, handlers
//   src/log/LogHeader.cpp                saveHeader, printHeader
//   src/stats/SummaryBuilder.cpp         buildStatistics (after loading)
//   src/stats/TextSummary.cpp            writeOutput, section writers, writeBackendSection
//   src/csv/CsvExport.cpp                CSV row writers, writeCsvRows
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <ostream>
#include <string>
#include <unordered_map>
#include <vector>

#include "VekChrometraceProfilingReader.h"
#include "log/EventStore.h"
#include "log/FlatBufferReaderUtil.h"
#include "log/GraphIndex.h"
#include "log/ProfileEvent.h"
#include "stats/AverageBuilder.h"
#include "stats/ObjectDirectory.h"
#include "stats/StatSummary.h"
#include "stats/StreamedSummaries.h"

namespace vek {
namespace profiling {

// Header text fixed by the runtime's adapter updater tool.
constexpr const char* kLoraAdapterUpdaterToolName = "zolra-lora-adapter-bin-updater";

// Labels of the context calls (method types 13, 14 and 15).
constexpr const char* kContextGetBinarySizeLabel = "CONTEXT GET BINARY SIZE";
constexpr const char* kContextGetBinaryLabel = "CONTEXT GET BINARY";
constexpr const char* kContextGetBinarySectionSizeLabel = "CONTEXT GET BINARY SECTION SIZE";

class VekProfileLogReader : public IVekLoadableProfileLogReader<VisibilityLevel> {
public:
    VekProfileLogReader(const std::string& logFilePath, VisibilityLevel level);

    // Slot 0: prints the text summary to standard output and appends the CSV
    // export to the output file when the path is non-empty.
    bool writeOutput(const std::string& outputPath) override;
    // Slot 1.
    ~VekProfileLogReader() override;
    // Slot 2.
    std::string printHeader() override;
    // Slot 3.
    bool readNextMessage() override;
    // Slot 4: reads the whole log file into the model.
    bool loadLog(bool loadFlag) override;
    // Slot 5.
    bool isAvailable() override;
    // Slot 6: the backend-event lines of the text summary.
    virtual void writeBackendSection(std::ostream& out, const std::vector<ProfileEvent>& events,
                                     uint64_t level);
    // Slot 7: the CSV rows of one phase record's backend events.
    virtual void writeCsvRows(std::ostream& out, std::vector<ProfileEvent> events,
                              uint64_t messageTimestamp, const std::string& messageWord);

    // What writeOutput writes, to streams: the full text summary to `report`
    // and, unless `csv` is null, the CSV export to `csv`.
    void writeReportTo(std::ostream& report, std::ostream* csv);

    // Text summary sections that the chrome-trace reader reuses.
    void printHeaderSection(std::ostream& out);
    void printLeadingSections(std::ostream& out);
    void printExecuteAverage(std::ostream& out);

    // Copies the current chunk's header once (called by loadLog).
    void saveHeader();

    // The whole CSV export: header rows, column header and every row group.
    void writeCsvExport(std::ostream& out);
    void writeCsvHeaderRows(std::ostream& out);

    // Saves the raw bytes of an object event under its detail name.
    void writeObjectEventFile(const ProfileEvent& event);

    // --- reader state (construction) ---
    VisibilityLevel visibilityLevel;
    bool reachedEof = false;
    std::string logFilePath;
    bool headerSaved = false;
    bool loadFlag = false;
    FlatBufferReaderUtil messageStream;
    // A salvage load finishes at a cut or corrupt chunk as at the end of the
    // file; loadBreak says where the last load stopped short of the end.
    bool salvageLoad = false;
    ChunkProblem loadBreak;
    // Where object files are confined to; null: names are used as they stand.
    std::unique_ptr<ObjectDirectory> objectDirectory;

    // --- header copy ---
    std::string toolName;
    std::string toolVersion;
    std::string backend;
    uint64_t epochTimestamp = 0;
    uint64_t steadyClockTimestamp = 0;
    float timeScale = 0.0f;
    bool loraAdapterUpdaterMode = false;

    // --- event model ---
    // Names, details, bytes and sub-event lists of every loaded event; declared
    // first so that it outlives every event that refers to it.
    EventStore eventStore;
    // After a summaries-only load: the stores of the few messages whose
    // events the summaries and initEvents are.
    std::vector<std::shared_ptr<EventStore>> messageStores;
    uint64_t initTimestamp = 0;
    uint64_t initDuration = 0;
    uint64_t contextCreateTimestamp = 0;
    uint64_t contextCreateDuration = 0;
    uint64_t composeTimestamp = 0;
    uint64_t composeDuration = 0;
    std::vector<ProfileEvent> initEvents;
    bool hasInitEvents = false;
    uint64_t binaryInitDuration = 0;
    uint64_t binaryInitTimestamp = 0;
    std::vector<ProfileEvent> binaryInitEvents;
    bool hasBinaryInit = false;
    bool hostRoundTrip = false;
    std::vector<NamedSample> finalizes;
    bool hasFinalize = false;
    bool hasFinalizeEvents = false;
    std::vector<GraphSamples> executions;
    std::vector<GraphSamples> applyBinarySections;
    bool hasApplyBinarySections = false;
    std::vector<GraphSamples> finalizeAfterUpdates;
    bool hasFinalizeAfterUpdates = false;
    std::vector<NamedSample> updateBinarySections;
    bool hasUpdateBinarySection = false;
    uint64_t netRunDuration = 0;
    uint64_t netRunTimestamp = 0;
    std::vector<ProfileEvent> netRunEvents;
    bool hasNetRun = false;
    uint64_t deinitDuration = 0;
    uint64_t deinitTimestamp = 0;
    std::vector<ProfileEvent> deinitEvents;
    uint64_t libLoadDuration = 0;
    uint64_t libLoadTimestamp = 0;
    std::vector<ProfileEvent> libLoadEvents;
    bool hasLibLoad = false;
    std::unordered_map<std::string, ExecutionSample> contextBinaryCalls;
    // The labels of contextBinaryCalls in the order first recorded, so the
    // reports list them in a stable order.
    std::vector<std::string> contextBinaryCallOrder;
    bool hasContextBinaryCalls = false;
    std::unordered_map<std::string, std::vector<ExecutionSample>> contextSectionCalls;
    bool hasContextSectionCalls = false;
    // Owns the text of string event values; never shrinks while the reader lives.
    std::list<std::string> internedStrings;
    // Where each graph name sits in the per-graph lists above (loader only).
    GraphIndex executionIndex;
    GraphIndex applyBinarySectionIndex;
    GraphIndex finalizeAfterUpdateIndex;
    GraphIndex finalizeIndex;
    // The per-graph averages, folded in call by call while loading.
    RunningAverages runningAverages;

    // --- statistics (filled once at the end of loadLog) ---
    SummaryLists executeStats;
    SummaryLists applyBinarySectionStats;
    SummaryLists finalizeAfterUpdatesStats;
    std::vector<QueueWaitSeries> averageQueueWaits;
    std::vector<QueueWaitValue> maximumQueueWaits;
    std::vector<QueueWaitValue> minimumQueueWaits;
    // Diagnostics collected by the statistics step (also logged as warnings).
    std::string loaderDiagnostics;

    // Records where loading broke off; true when it finishes there (loadLog).
    bool stopsAtBreak(const ChunkProblem& problem);

    // Runs the statistics step over the loaded model (called by loadLog).
    void buildStatistics();

    // --- summaries-only load ---
    LoadScope loadScope = LoadScope::Full;
    bool loadStarted = false;
    // The running summaries while a summaries-only load reads (the
    // per-graph call lists above then stay empty).
    std::unique_ptr<StreamedSummaries> streamed;
    // A summaries-only load with the load flag: the top-level object events
    // of every execution, graph by graph, for the object files.
    std::vector<ProfileEvent> executionObjectEvents;
    // Sets up the chosen scope (called by loadLog before it reads).
    void beginLoad(bool loadFlag);
};

}  // namespace profiling
}  // namespace vek
