// Encodes the JSON form of a profile log (see LogJsonDecoder.h) back into a
// log: one u32-length-prefixed chunk per element of "chunks".
//
// The framing, {"chunks": [...]}, is read here; each chunk object is parsed
// by FlatBuffers' JSON parser against the log schema, strictly: unknown or
// repeated keys, values of the wrong type or out of the field's range and
// messages without "stamp" or "timing" are refused. A key that is present is
// written to the chunk, also with its default value. Errors name the chunk
// index, the JSON line and column, and the parser's reason. Every chunk is
// checked with the reader's verifier before it is written, and written as
// soon as its object closes, so memory stays bounded by the largest chunk.
#pragma once

#include <cstdio>
#include <ostream>

#include "ConversionStatus.h"

namespace vek {
namespace profiling {

ConversionStatus encodeJson(std::FILE* json, std::ostream& log);

}  // namespace profiling
}  // namespace vek
