// Decodes a binary profile log into its JSON form (see JsonLogFormat.h).
//
// Each chunk is verified with the reader's own verifier before it is
// printed; the first corrupt chunk stops the run with an error that names
// its index and the byte offset of its length field. A field is printed when
// the chunk holds it, also when it holds the default value; absent fields
// are left out. Chunks are read and printed one at a time, so memory stays
// bounded by the largest chunk.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "ConversionStatus.h"
#include "OutputSink.h"

namespace vek {
namespace profiling {

// Reads the log at `path` ("-" is standard input).
ConversionStatus decodeLogFile(const std::string& path, OutputSink& out);

// Decodes a log held in memory.
ConversionStatus decodeLogBytes(const uint8_t* data, size_t size, OutputSink& out);

}  // namespace profiling
}  // namespace vek
