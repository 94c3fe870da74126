// Decodes a binary profile log into JSON, {"chunks": [CHUNK, ...]}: each
// chunk is written by FlatBuffers' text generator from the log schema, one
// LogChunk object with the fields the chunk holds (also those holding their
// default value) in field-id order. Float fields are written exactly (see
// the decoder's ChunkTextWriter).
//
// Each chunk is verified with the reader's own verifier first; the first
// corrupt one stops the run with an error that names its index and the byte
// offset of its length field. Memory stays bounded by the largest chunk.
#pragma once

#include <cstdio>
#include <ostream>

#include "ConversionStatus.h"

namespace vek {
namespace profiling {

ConversionStatus decodeLog(std::FILE* log, std::ostream& json);

}  // namespace profiling
}  // namespace vek
