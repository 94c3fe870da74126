// The log schema as FlatBuffers' JSON parser and text generator use it: the
// binary schema that flatc embeds at build time, loaded with options that
// make the JSON strict and keep every value the log holds.
#pragma once

#include <flatbuffers/idl.h>

#include <memory>

namespace vek {
namespace profiling {

// Throws std::logic_error when the embedded schema does not load.
std::unique_ptr<flatbuffers::Parser> loadLogSchema();

}  // namespace profiling
}  // namespace vek
