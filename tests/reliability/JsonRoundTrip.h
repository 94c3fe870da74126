// The JSON fuzz target's check, replayed by the regression tests.
#pragma once

#include <sstream>

#include "LogJson.h"
#include "support/MemoryFile.h"

namespace vek::profiling::reliability {

// Converts `input` with `convert` (decodeLog or encodeJson) into `output`.
template <typename Convert>
ConversionStatus convertBytes(Convert convert, const std::string& input, std::string& output) {
    const testlog::MemoryFile in(input);
    std::ostringstream out;
    const ConversionStatus status = convert(in.get(), out);
    output = out.str();
    return status;
}

// Whatever the encoder accepts must decode, and come back unchanged from a second round trip:
// empty when it does (or the encoder refuses `json`), otherwise what went wrong.
inline std::string jsonRoundTripProblem(const std::string& json) {
    std::string log, decoded, again;
    if (!convertBytes(encodeJson, json, log).ok()) return std::string();
    ConversionStatus status = convertBytes(decodeLog, log, decoded);
    if (!status.ok()) return "the encoded log does not decode: " + status.error;
    status = convertBytes(encodeJson, decoded, log);
    if (!status.ok()) return "the decoded JSON does not encode: " + status.error;
    status = convertBytes(decodeLog, log, again);
    if (!status.ok()) return "the log of the decoded JSON does not decode: " + status.error;
    return again == decoded ? std::string() : "the JSON changes on a second round trip";
}

}  // namespace vek::profiling::reliability
