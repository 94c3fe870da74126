// An output file that appears whole or not at all.
//
// What is written goes to a temporary file in the target's directory;
// commit() closes it and renames it into place only when the whole output
// was written. Until then an earlier file of that name is left untouched;
// when the output fails, is dropped, or the program is stopped by SIGINT,
// SIGTERM or SIGHUP, the temporary file is removed.
//
// A name ending in ".gz" is written gzip-compressed, streamed. Appending
// copies the earlier file into the temporary one first (for ".gz", the new
// text becomes a gzip member of its own after the earlier ones, which gzip
// readers join). Standard output ("-") and targets that are not regular files
// (/dev/null, a FIFO, a terminal) are written directly.
#pragma once

#include <memory>
#include <ostream>
#include <string>

namespace vek {
namespace tools {

class OutputFile {
public:
    enum class Mode { kReplace, kAppend };

    // Null with `error` set (the reason, e.g. "Permission denied") when the
    // output cannot be started: no directory, no permission, a read-only file.
    static std::unique_ptr<OutputFile> open(const std::string& path, Mode mode,
                                            std::string& error);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    std::ostream& stream();
    // Finishes the output and puts it in place; false with `error` set when
    // any of it could not be written (the target is then left as it was).
    bool commit(std::string& error);

    static bool isCompressedName(const std::string& path);

private:
    struct State;
    explicit OutputFile(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

}  // namespace tools
}  // namespace vek
