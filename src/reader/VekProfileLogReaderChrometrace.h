// The reader handed to the host: writes a Chrome trace-event JSON file and a
// short summary, and lists backend events with resource labels.
#pragma once

#include "reader/VekProfileLogReader.h"

namespace vek {
namespace profiling {

class VekProfileLogReaderChrometrace : public VekProfileLogReader {
public:
    using VekProfileLogReader::VekProfileLogReader;

    // Slot 0: the trace file plus the summary on standard output.
    bool writeOutput(const std::string& outputPath) override;
    // Slot 1.
    ~VekProfileLogReaderChrometrace() override;
    // Slot 6: backend lines with resource labels; identifiers 9000..9009 hidden.
    void writeBackendSection(std::ostream& out, const std::vector<ProfileEvent>& events,
                             uint64_t depth) override;

    // What writeOutput writes, to streams: the trace document in `format`,
    // then the short summary. False when the log cannot be drawn (logged) or
    // a stream failed.
    bool writeTraceTo(std::ostream& trace, std::ostream& summary, TraceFormat format);

private:
    // The short summary: header, leading sections and execute averages.
    void composeTraceSummary(std::ostream& summary);
};

}  // namespace profiling
}  // namespace vek
