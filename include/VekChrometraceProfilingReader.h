// Public interface of the VekChrometraceProfilingReader plug-in.
//
// A host loads the shared library at run time, finds `createReader` and
// `deleteReader` by name and drives the returned reader through the virtual
// operations of IVekProfileLogReader. The declaration order of the virtual
// operations is part of the binary interface: do not reorder them.
#ifndef VEK_CHROMETRACE_PROFILING_READER_H
#define VEK_CHROMETRACE_PROFILING_READER_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#if defined(_WIN32)
#define VEK_PROFILING_EXPORT __declspec(dllexport)
#else
#define VEK_PROFILING_EXPORT __attribute__((visibility("default")))
#endif

namespace vek {
namespace profiling {

// Carried as one signed byte and compared only by order: a message is kept
// when its own visibility byte is below the reader's level.
enum VisibilityLevel : int8_t {};

template <typename Level>
class IVekProfileLogReader {
public:
    // Slot 0: writes the reader's report for the given output path.
    virtual bool writeOutput(const std::string& outputPath) = 0;
    // Slot 1 (two entries on this ABI): destroys the reader.
    virtual ~IVekProfileLogReader() {}
    // Slot 2: the saved log header as text; empty when there is none.
    virtual std::string printHeader() = 0;
    // Slot 3: folds the next message of the current chunk into the model.
    virtual bool readNextMessage() = 0;
};

// The operations that follow the interface's in the readers this library
// creates (slots 4 and 5). A host reaches them with a static_cast of the
// pointer that createReader or createSummaryReader returned.
template <typename Level>
class IVekLoadableProfileLogReader : public IVekProfileLogReader<Level> {
public:
    // Slot 4: opens the log file and reads it whole; with `loadFlag` the
    // reports also save the object events as files.
    virtual bool loadLog(bool loadFlag) = 0;
    // Slot 5: always true.
    virtual bool isAvailable() = 0;
};

// Host callback for the library's diagnostics: the format string, its level
// (1 error .. 5 debug), nanoseconds since the logger was registered, and the
// format's arguments. The callback does the formatting (printf rules).
using LogCallback = void (*)(const char* format, uint32_t level, uint64_t timestamp,
                             va_list arguments);

// Registers a logger under `handle` and makes that handle the library's:
// from then on every message whose level is <= maxLevel reaches `callback`.
// Registering again under the same handle replaces the previous logger.
VEK_PROFILING_EXPORT void registerLogger(uint64_t handle, LogCallback callback,
                                         int32_t maxLevel);

// Creates a plain base reader (the full text summary with the CSV export as
// its output) instead of the chrome-trace reader. Free it with deleteReader.
VEK_PROFILING_EXPORT IVekProfileLogReader<VisibilityLevel>* createSummaryReader(
    const std::string& logFilePath, VisibilityLevel level);

// --- Reports written to streams -------------------------------------------
// The same reports as writeOutput, written to streams the host owns (a
// compressing stream, a temporary file renamed into place, a pipe).

// The layout of a trace document.
enum class TraceFormat : uint8_t {
    Exact,     // the chrome-trace reader's own file, byte for byte
    Portable,  // numeric process and thread ids, valid UTF-8, metadata events
};

// What the chrome-trace reader's writeOutput does, with the trace document
// written to `trace` in `format` and the short summary to `summary` instead
// of a file and standard output. `reader` must be a loaded reader made by
// createReader. False when the log cannot be drawn (the reason is logged) or
// when a stream failed; the summary is written only after the whole trace.
VEK_PROFILING_EXPORT bool writeTrace(IVekProfileLogReader<VisibilityLevel>* reader,
                                     std::ostream& trace, std::ostream& summary,
                                     TraceFormat format);

// What the base reader's writeOutput does: the full text summary to `report`
// and, unless `csv` is null, the CSV export to `csv`. `reader` must be a loaded
// reader made by createSummaryReader (or createReader: its backend listing
// then shows resource labels). False when a stream failed.
VEK_PROFILING_EXPORT bool writeSummary(IVekProfileLogReader<VisibilityLevel>* reader,
                                       std::ostream& report, std::ostream* csv);

// --- Portable trace: what a trace holds -----------------------------------
// How many slices (complete events) the trace of a loaded reader holds; both
// formats hold the same slices. A host tells its user when there are none:
// the trace then opens as an empty timeline. 0 too when the log cannot be
// drawn, which is logged as writeTrace logs it.
VEK_PROFILING_EXPORT uint64_t countTraceSlices(IVekProfileLogReader<VisibilityLevel>* reader);

// --- Op views: which ops cost the most (top), what changed (diff), the HTML report ---
//
// The figures come from the per-graph summaries that loading computes; the
// executions themselves are never read again. Op times are the payloads of
// the op records (identifier 404, children of an execution's top-level
// events), taken as microseconds as the trace takes them.

// One op record of a graph's average execution.
struct OpFigures {
    std::string name;
    uint64_t averageUs = 0;
    // The op's time in the fastest and in the slowest execution (the minimum
    // and maximum summaries keep only those two executions), found by name:
    // the first op of the same name. Absent when that execution has none.
    std::optional<uint64_t> minimumUs;
    std::optional<uint64_t> maximumUs;
    // Its wait (5001), background (5002) and wait-background (5003) times
    // and resource mask (5004), when the record has them.
    std::optional<uint64_t> waitUs;
    std::optional<uint64_t> backgroundUs;
    std::optional<uint64_t> waitBackgroundUs;
    std::optional<uint64_t> resourceMask;
    // The work beside the op and beside its wait (the names under 5002 and
    // 5003), joined by ", ".
    std::string backgroundNames;
    std::string waitBackgroundNames;
};

// One graph: its NetRun figures and its ops in execution order.
struct GraphFigures {
    std::string graphName;
    uint64_t executionCount = 0;
    uint64_t netRunAverageUs = 0;
    // Absent when every execution took 0 us.
    std::optional<uint64_t> netRunMinimumUs;
    uint64_t netRunMaximumUs = 0;
    // The graph's accelerator time: the average of the top-level events that
    // hold its ops, summed (the ops' share is taken of it).
    uint64_t acceleratorUs = 0;
    std::vector<OpFigures> ops;
};

// The log's header; all empty when the log has none.
struct LogHeaderFigures {
    bool present = false;
    std::string toolName;
    std::string toolVersion;
    std::string backend;
    uint64_t epochTimestampUs = 0;  // when the log was created
    float timeScale = 0.0f;
};

// A timed call outside the executions: "Init", "Compose graphs", "Finalize"
// (per graph), "De-init", "Library load", "Apply binary section" (per graph:
// the average, with the minimum and maximum).
struct PhaseFigures {
    std::string phase;
    std::string graphName;  // empty for the calls of the whole log
    uint64_t durationUs = 0;
    std::optional<uint64_t> minimumUs;
    std::optional<uint64_t> maximumUs;
};

struct LogFigures {
    std::string logPath;
    uint64_t logSizeBytes = 0;
    LogHeaderFigures header;
    // The whole run's rate as the log records it (count x 1000000 / duration).
    std::optional<double> inferencesPerSecond;
    std::vector<PhaseFigures> phases;
    std::vector<GraphFigures> graphs;
};

// The figures of a loaded reader made by this library; false for another
// reader. Read them after loadLog.
VEK_PROFILING_EXPORT bool collectLogFigures(IVekProfileLogReader<VisibilityLevel>* reader,
                                            LogFigures& figures);

enum class ChangeKind { Matched, Added, Removed };

// An op or graph on both sides (Matched) or on one only. On the missing side
// the time is 0; the percentage needs a non-zero base.
struct OpChange {
    std::string name;
    ChangeKind kind = ChangeKind::Matched;
    uint64_t baseUs = 0;
    uint64_t newUs = 0;
    int64_t deltaUs = 0;  // new - base, held within the int64 range
    std::optional<double> percent;
};

struct GraphChange {
    std::string graphName;
    ChangeKind kind = ChangeKind::Matched;
    // NetRun averages.
    uint64_t baseUs = 0;
    uint64_t newUs = 0;
    int64_t deltaUs = 0;
    std::optional<double> percent;
    // By decreasing absolute delta; equal deltas keep the base's op order,
    // added ops after it in the new log's order.
    std::vector<OpChange> ops;
};

struct LogDiff {
    std::string baseLogPath;
    std::string newLogPath;
    // The base's graphs in its order, then the graphs only the new log has.
    std::vector<GraphChange> graphs;
};

// Graphs are matched by name; within a graph the n-th op of a name matches
// the n-th op of that name on the other side.
VEK_PROFILING_EXPORT LogDiff compareLogFigures(const LogFigures& base, const LogFigures& changed);

// The graphs on both sides whose NetRun average grew by more than `percent`.
VEK_PROFILING_EXPORT std::vector<std::string> graphsSlowerBy(const LogDiff& diff, double percent);

enum class ViewFormat { Text, Csv, Json };
enum class TopOrder { Average, Maximum, Wait, Name };

struct TopViewOptions {
    size_t limit = 20;                // ops per graph; 0: all
    std::vector<std::string> graphs;  // empty: every graph
    TopOrder order = TopOrder::Average;
    ViewFormat format = ViewFormat::Text;
};

struct DiffViewOptions {
    double thresholdPercent = 0.0;  // ops that changed by less are left out
    ViewFormat format = ViewFormat::Text;
};

// Writes the view; false when the stream fails.
VEK_PROFILING_EXPORT bool writeTopView(const LogFigures& figures, const TopViewOptions& options,
                                       std::ostream& out);
VEK_PROFILING_EXPORT bool writeDiffView(const LogDiff& diff, const DiffViewOptions& options,
                                        std::ostream& out);

// One HTML file that needs nothing else: the header, per graph a NetRun
// chart, a chart of the top ops, a timeline of the average execution and a
// table of the top ops, the phases, and a footer. False when the stream fails.
VEK_PROFILING_EXPORT bool writeHtmlReport(const LogFigures& figures, std::ostream& out);
// --- end of op views ---

// --- Cut and corrupt logs: where a log breaks, and loading up to there ----

// What keeps a log from being read whole.
enum class ChunkProblemKind : int32_t {
    None,            // nothing: the log was read to its end
    TrailingBytes,   // 1 to 3 bytes after the last chunk, too few for a length field; ignored
    CutChunk,        // the length field announces more bytes than the file still holds
    InvalidChunk,    // the chunk fails verification
    ReadError,       // the file could not be read
    NotAProfileLog,  // the first chunk is broken in a way no cut log is: not a profile log
};

// Where a log breaks, as plain data. The offset is that of the chunk's
// length field; the counts are of the whole, valid chunks before it.
struct ChunkProblem {
    ChunkProblemKind kind = ChunkProblemKind::None;
    uint64_t chunkIndex = 0;
    uint64_t byteOffset = 0;
    uint64_t chunksBefore = 0;
    uint64_t messagesBefore = 0;
    // One line, e.g. "cut short: its length field announces 4080 bytes, only 17 are there".
    std::string reason;
};

// With `salvage` set, loadLog stops at a cut or corrupt chunk as it stops at
// the end of the file: the statistics are computed over the chunks before it
// and loadLog returns true. Off by default. False when `reader` was not
// created by this library.
VEK_PROFILING_EXPORT bool setSalvageLoad(IVekProfileLogReader<VisibilityLevel>* reader,
                                         bool salvage);

// Where the reader's last loadLog stopped short of a clean end of the log
// (kind None when it read the log whole, or for a reader of another library).
VEK_PROFILING_EXPORT ChunkProblem loadBreak(IVekProfileLogReader<VisibilityLevel>* reader);

// --- Object files confined to a directory --------------------------------

// Makes the reader save object files beneath `directory` only. Their names
// are taken relative to it; a name that is absolute, has a ".." component or
// resolves through a symbolic link to outside it is refused with the logged
// error "Object event [%s]: file name [%s] %s; not saved" (the event's name,
// the file name, why) and the report goes on. No file is replaced and no
// link followed in a name's last component. The kernel enforces the
// directory where it can (openat2 with RESOLVE_BENEATH). An empty directory
// restores the default, names used as they stand. False when `reader` was not
// created by this library or `directory` cannot be opened.
VEK_PROFILING_EXPORT bool confineObjectFiles(IVekProfileLogReader<VisibilityLevel>* reader,
                                             const std::string& directory);

// --- Summaries-only load --------------------------------------------------
// How much of the log loadLog keeps. Full keeps every call, as the CSV export
// needs. SummariesOnly folds each execution, apply-binary-section and
// finalize-after-tensor-updates call into its graph's average, maximum and
// minimum as it is read and keeps none of them, so that memory does not grow
// with the length of the log; every other report is the same byte for byte.
enum class LoadScope { Full, SummariesOnly };

// Chooses the scope of the reader's loadLog (Full unless asked). False, and
// nothing changes, for a null reader, a reader this library did not create,
// or one whose loadLog has already run.
VEK_PROFILING_EXPORT bool setLoadScope(IVekProfileLogReader<VisibilityLevel>* reader,
                                       LoadScope scope);

}  // namespace profiling
}  // namespace vek

extern "C" {
// Creates the chrome-trace reader for a log file; null when allocation fails.
VEK_PROFILING_EXPORT vek::profiling::IVekProfileLogReader<vek::profiling::VisibilityLevel>*
createReader(const std::string& logFilePath, vek::profiling::VisibilityLevel level);

// Destroys a reader made by createReader or createSummaryReader; null is ignored.
VEK_PROFILING_EXPORT void deleteReader(
    vek::profiling::IVekProfileLogReader<vek::profiling::VisibilityLevel>* reader);
}

#endif  // VEK_CHROMETRACE_PROFILING_READER_H
