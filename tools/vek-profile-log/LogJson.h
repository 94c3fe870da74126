// The JSON form of a profile log, {"chunks": [CHUNK, ...]}: one LogChunk
// object per chunk, as FlatBuffers' text generator writes it from the log
// schema (the fields the chunk holds, also those at their default value, in
// field-id order), with floats written exactly (see LogJsonDecoder.cpp).
// Both directions keep memory bounded by the largest chunk.
#pragma once

#include <cstddef>
#include <cstdio>
#include <ostream>
#include <string>

namespace vek {
namespace profiling {

struct ConversionStatus {
    std::string error;    // empty on success
    std::string warning;  // something tolerated, worth telling the user
    size_t chunkCount = 0;

    bool ok() const { return error.empty(); }
};

// Each chunk is verified with the reader's own verifier before it is
// written; the first broken one stops the run with the chunk index and byte
// offset of its length field, in the words the log check uses.
ConversionStatus decodeLog(std::FILE* log, std::ostream& json);

// Each chunk object is parsed strictly against the log schema: unknown or
// repeated keys, values of the wrong type or out of range and messages
// without "stamp" or "timing" are refused, with the chunk index, the JSON
// line and column and the parser's reason. A key that is present is written,
// also with its default value. Each chunk is verified, then written with its
// u32 length prefix as soon as its object closes.
ConversionStatus encodeJson(std::FILE* json, std::ostream& log);

}  // namespace profiling
}  // namespace vek
