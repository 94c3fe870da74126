#include "LogJsonSchema.h"

#include <stdexcept>

#include "profile_log_bfbs_generated.h"

namespace vek {
namespace profiling {

std::unique_ptr<flatbuffers::Parser> loadLogSchema() {
    flatbuffers::IDLOptions options;
    options.strict_json = true;  // quoted keys in and out
    options.indent_step = 4;
    // A key given with its default value is still written to the chunk, so
    // that decoding shows it again.
    options.force_defaults = true;
    // Strings that are not UTF-8 are written with \x escapes and read back
    // from them; otherwise a log holding one could not be decoded.
    options.allow_non_utf8 = true;
    auto parser = std::make_unique<flatbuffers::Parser>(options);
    if (!parser->Deserialize(fb::LogChunkBinarySchema::data(), fb::LogChunkBinarySchema::size())) {
        throw std::logic_error("the embedded log schema does not load: " + parser->error_);
    }
    return parser;
}

}  // namespace profiling
}  // namespace vek
