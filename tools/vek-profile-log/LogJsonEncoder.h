// Encodes the JSON form of a profile log (see JsonLogFormat.h) back into a
// log: one u32-length-prefixed FlatBuffers chunk per JSON chunk, built with
// the generated builders.
//
// The JSON is read as a stream and each chunk is written as soon as its
// object closes, so memory stays bounded by the largest chunk. A key that is
// present is written to the chunk, also when its value is the field's
// default, so that decoding the result gives back the same JSON. Invalid
// JSON, unknown or repeated keys, values of the wrong type or out of the
// field's range, and messages without "stamp" or "timing" are errors naming
// the JSON path (chunk, message and event indices) and the JSON offset.
// Every chunk is checked with the reader's verifier before it is written.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "ConversionStatus.h"
#include "OutputSink.h"

namespace vek {
namespace profiling {

// Reads the JSON at `path` ("-" is standard input).
ConversionStatus encodeJsonFile(const std::string& path, OutputSink& out);

ConversionStatus encodeJsonText(std::string_view json, OutputSink& out);

}  // namespace profiling
}  // namespace vek
