#include "reader/VekProfileLogReader.h"

namespace vek {
namespace profiling {

VekProfileLogReader::VekProfileLogReader(const std::string& path, VisibilityLevel level)
    : visibilityLevel(level), logFilePath(path) {
    contextBinaryCalls.max_load_factor(1.0f);
    contextBinaryCalls.rehash(8);
    contextSectionCalls.max_load_factor(1.0f);
    contextSectionCalls.rehash(8);
}

VekProfileLogReader::~VekProfileLogReader() = default;

bool VekProfileLogReader::isAvailable() { return true; }

void VekProfileLogReader::beginLoad(bool flag) {
    loadStarted = true;
    if (loadScope != LoadScope::SummariesOnly) return;
    streamed = std::make_unique<StreamedSummaries>(eventStore);
    // The object files of executions are written from their top-level
    // object events, which are kept only when asked for.
    streamed->executions.keepObjectEvents(flag);
}

// --- Summaries-only load ---
bool setLoadScope(IVekProfileLogReader<VisibilityLevel>* reader, LoadScope scope) {
    auto* ours = dynamic_cast<VekProfileLogReader*>(reader);
    if (ours == nullptr || ours->loadStarted) return false;
    ours->loadScope = scope;
    return true;
}

}  // namespace profiling
}  // namespace vek
