// The round trip that every JSON the log tool accepts must survive: its log
// decodes, and the decoded JSON encodes to the same bytes. Shared by the
// JSON fuzz target and the regression tests that replay its findings.
#pragma once

#include <string>
#include <string_view>

#include "LogJsonDecoder.h"
#include "LogJsonEncoder.h"
#include "OutputSink.h"

namespace vek {
namespace profiling {
namespace reliability {

// Empty when the encoder refuses `json` or the round trip holds; otherwise
// what went wrong.
inline std::string jsonRoundTripProblem(std::string_view json) {
    std::string log;
    {
        OutputSink sink(log);
        if (!encodeJsonText(json, sink).ok()) return std::string();
        if (!sink.finish()) return "the encoded log could not be written: " + sink.error();
    }
    std::string decoded;
    {
        OutputSink sink(decoded);
        const ConversionStatus status =
            decodeLogBytes(reinterpret_cast<const uint8_t*>(log.data()), log.size(), sink);
        if (!status.ok()) return "the encoded log does not decode: " + status.error;
        if (!sink.finish()) return "the decoded JSON could not be written: " + sink.error();
    }
    std::string again;
    {
        OutputSink sink(again);
        const ConversionStatus status = encodeJsonText(decoded, sink);
        if (!status.ok()) return "the decoded JSON does not encode: " + status.error;
        if (!sink.finish()) return "the encoded log could not be written: " + sink.error();
    }
    if (again != log) return "the decoded JSON encodes to other bytes than the original";
    return std::string();
}

}  // namespace reliability
}  // namespace profiling
}  // namespace vek
