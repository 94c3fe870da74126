// The handlers that fold one log message into the reader's event model, one
// per kind of call. Each returns false when the message was skipped (hidden
// by the reader's visibility level, or missing the graph name it needs).
#pragma once

#include <cstdint>

#include "profile_log_generated.h"

namespace vek {
namespace profiling {

// Values of LogMessage.methodType.
enum LogMethodType : uint8_t {
    kMethodExecute = 1,
    kMethodFinalize = 2,
    kMethodExecuteRoundTrip = 3,
    kMethodBinaryInit = 4,
    kMethodDeinit = 5,
    kMethodContextCreate = 6,
    kMethodCompose = 7,
    kMethodNetRun = 8,
    kMethodFinalize2 = 9,
    kMethodLibLoad = 10,
    kMethodApplyBinarySection = 11,
    kMethodApplyBinarySection2 = 12,
    kMethodContextGetBinarySize = 13,
    kMethodContextGetBinary = 14,
    kMethodContextGetBinarySectionSize = 15,
    kMethodFinalizeAfterTensorUpdates = 16,
    kMethodUpdateBinarySection = 17,
};

class VekProfileLogReader;

// Method types 1 and 3: one execution of a graph.
bool recordExecution(VekProfileLogReader& reader, const fb::LogMessage& message);
// Method types 2 and 9: a graph finalisation; only type 2 sets hasFinalize.
bool recordFinalize(VekProfileLogReader& reader, const fb::LogMessage& message);
// Method type 4: context creation from a stored binary.
bool recordBinaryInit(VekProfileLogReader& reader, const fb::LogMessage& message);
// Method type 5.
bool recordDeinit(VekProfileLogReader& reader, const fb::LogMessage& message);
// Method type 6: context creation (no events kept).
bool recordContextCreate(VekProfileLogReader& reader, const fb::LogMessage& message);
// Method type 7: graph composition (no events kept).
bool recordCompose(VekProfileLogReader& reader, const fb::LogMessage& message);
// Method type 8: whole network run.
bool recordNetRun(VekProfileLogReader& reader, const fb::LogMessage& message);
// Method type 10: backend library load.
bool recordLibLoad(VekProfileLogReader& reader, const fb::LogMessage& message);
// Method types 11 and 12.
bool recordApplyBinarySection(VekProfileLogReader& reader, const fb::LogMessage& message);
// Method types 13 and 14: kept once per label, the latest call wins.
bool recordContextBinaryCall(VekProfileLogReader& reader, const fb::LogMessage& message);
// Method type 15: every call appended under its label.
bool recordContextSectionCall(VekProfileLogReader& reader, const fb::LogMessage& message);
// Method type 16.
bool recordFinalizeAfterUpdates(VekProfileLogReader& reader, const fb::LogMessage& message);
// Method type 17: only the latest call is kept.
bool recordUpdateBinarySection(VekProfileLogReader& reader, const fb::LogMessage& message);

}  // namespace profiling
}  // namespace vek
