// vek-profile-log: decodes a binary profile log to JSON and encodes such
// JSON back into a log; checks a log and trims a cut one to its whole chunks.
#include <getopt.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "CheckCommand.h"
#include "LogJsonDecoder.h"
#include "LogJsonEncoder.h"
#include "InputFile.h"
#include "LogRefusal.h"
#include "OutputFile.h"
#include "TrimCommand.h"
#include "VekVersion.h"

namespace {

using vek::profiling::ConversionStatus;
using vek::tools::OutputFile;

constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr char kProgram[] = "vek-profile-log";

constexpr char kUsage[] =
    "Usage: vek-profile-log decode LOG [-o OUT.json]\n"
    "       vek-profile-log encode IN.json -o OUT.log\n"
    "       vek-profile-log check LOG\n"
    "       vek-profile-log trim LOG -o OUT.log\n"
    "\n"
    "Decodes a binary profile log into JSON, or encodes such JSON back into a log;\n"
    "checks a log, or trims a cut one to its whole chunks.\n"
    "\n"
    "Commands:\n"
    "  decode LOG       print every chunk of LOG as JSON; each chunk is verified\n"
    "                   first, and the first corrupt one stops the run\n"
    "  encode IN.json   write one length-prefixed chunk per entry of \"chunks\"\n"
    "  check LOG        verify every chunk; print one line per problem (chunk index,\n"
    "                   byte offset, the valid chunks and messages before it) and\n"
    "                   how much of the log is whole\n"
    "  trim LOG         write the longest prefix of whole, valid chunks, so that a\n"
    "                   log cut short by a crash can be read\n"
    "\n"
    "Options:\n"
    "  -o, --output=FILE  write to FILE instead of standard output (required for\n"
    "                     encode and trim); \"-\" is standard input or output\n"
    "  -h, --help         show this help and exit\n"
    "      --version      show the version and exit\n"
    "\n"
    "Exit status: 0 on success, 1 when the input cannot be converted or the output\n"
    "cannot be written (check: when the log has a problem), 2 on a usage error.\n";

struct CommandLine {
    std::string command;
    std::string input;
    std::string output;
    bool help = false;
    bool version = false;
};

int usageError(const std::string& message) {
    std::fprintf(stderr, "%s: %s\nTry '%s --help' for more information.\n", kProgram,
                 message.c_str(), kProgram);
    return kExitUsage;
}

// GNU-style: options may come before or after the operands; "--" ends them.
// Returns kExitOk when the command line is usable.
int parseCommandLine(int argc, char** argv, CommandLine& line) {
    static const option kOptions[] = {
        {"output", required_argument, nullptr, 'o'},
        {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, 'V'},
        {nullptr, 0, nullptr, 0},
    };
    opterr = 0;
    bool haveOutput = false;
    for (;;) {
        const int option = getopt_long(argc, argv, ":o:h", kOptions, nullptr);
        if (option == -1) break;
        switch (option) {
            case 'o':
                if (haveOutput) return usageError("option -o/--output given twice");
                line.output = optarg;
                haveOutput = true;
                break;
            case 'h': line.help = true; break;
            case 'V': line.version = true; break;
            case ':': return usageError(std::string("option '") + argv[optind - 1] +
                                        "' needs an argument");
            default:
                // optopt names an unknown short option; a long one is the argument just passed.
                return usageError(optopt != 0 ? std::string("unknown option '-") +
                                                    static_cast<char>(optopt) + "'"
                                              : std::string("unknown option '") +
                                                    argv[optind - 1] + "'");
        }
    }
    if (line.help || line.version) return kExitOk;
    std::vector<std::string> operands(argv + optind, argv + argc);
    if (operands.empty()) return usageError("missing command (decode, encode, check or trim)");
    line.command = operands[0];
    if (line.command != "decode" && line.command != "encode" && line.command != "check" &&
        line.command != "trim") {
        return usageError("unknown command '" + line.command + "'");
    }
    if (operands.size() < 2) return usageError("missing input file");
    if (operands.size() > 2) return usageError("unexpected argument '" + operands[2] + "'");
    line.input = operands[1];
    if (line.command == "check" && haveOutput) return usageError("check writes no file (-o)");
    if (!haveOutput) {
        if (line.command == "encode" || line.command == "trim") {
            return usageError(line.command + " needs an output file (-o)");
        }
        line.output = "-";
    }
    if (line.output.empty() || line.input.empty()) return usageError("empty file name");
    return kExitOk;
}

// Opening the output truncates it, so writing over the input would destroy it.
bool sameFile(const std::string& a, const std::string& b) {
    if (a == "-" || b == "-") return false;
    struct stat first {};
    struct stat second {};
    return ::stat(a.c_str(), &first) == 0 && ::stat(b.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

int fail(const std::string& message) {
    std::fprintf(stderr, "%s: %s\n", kProgram, message.c_str());
    return kExitFailure;
}

int run(const CommandLine& line) {
    if (line.command == "check") return vek::profiling::runCheck(line.input);
    if (sameFile(line.input, line.output)) {
        std::fprintf(stderr, "%s: the output %s is the input file\n", kProgram,
                     line.output.c_str());
        return kExitFailure;
    }
    if (line.command == "trim") return vek::profiling::runTrim(line.input, line.output);
    // A missing file or a directory is refused before the output is created;
    // an empty log decodes to no chunks.
    const std::string refusal = line.command == "decode" && line.input != "-"
                                    ? vek::tools::logFileRefusal(line.input, true)
                                    : std::string();
    if (!refusal.empty()) return fail(line.input + ": " + refusal);
    const vek::profiling::InputFile input(line.input);
    if (input.get() == nullptr) return fail(line.input + ": " + input.error());
    std::string error;
    const auto output = OutputFile::open(line.output, OutputFile::Mode::kReplace, error);
    if (!output) return fail("cannot write " + line.output + ": " + error);
    const ConversionStatus status =
        line.command == "decode" ? vek::profiling::decodeLog(input.get(), output->stream())
                                 : vek::profiling::encodeJson(input.get(), output->stream());
    if (!status.warning.empty()) {
        std::fprintf(stderr, "%s: warning: %s: %s\n", kProgram, line.input.c_str(),
                     status.warning.c_str());
    }
    if (!status.ok()) return fail(line.input + ": " + status.error);
    if (!output->commit(error)) return fail("cannot write " + line.output + ": " + error);
    return kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
    CommandLine line;
    const int parsed = parseCommandLine(argc, argv, line);
    if (parsed != kExitOk) return parsed;
    if (line.help) {
        std::fputs(kUsage, stdout);
        return std::fflush(stdout) == 0 ? kExitOk : kExitFailure;
    }
    if (line.version) {
        std::printf("%s %s\n", kProgram, VEK_PROFILE_VIEWER_VERSION);
        return std::fflush(stdout) == 0 ? kExitOk : kExitFailure;
    }
    return run(line);
}
