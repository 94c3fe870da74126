// vek-profile-log: decodes a binary profile log to JSON and encodes such
// JSON back into a log; checks a log and trims a cut one to its whole chunks.
#include <sys/stat.h>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>

#include "CheckCommand.h"
#include "HelpFormatter.h"
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

struct CommandLine {
    std::string command;
    std::string input;
    std::string output;  // empty: not given
};

// The commands, their operand and what they do; `output` describes -o, if the command has it.
struct Command {
    const char* name;
    const char* input;
    const char* inputDescription;
    const char* description;
    const char* output;
};

const Command kCommands[] = {
    {"decode", "LOG", "the profile log to decode",
     "print every chunk of LOG as JSON; each chunk is verified first, and the first corrupt "
     "one stops the run",
     "write to FILE instead of standard output"},
    {"encode", "IN.json", "the JSON to encode",
     "write one length-prefixed chunk per entry of \"chunks\" of IN.json",
     "the log to write (required)"},
    {"check", "LOG", "the profile log to check",
     "verify every chunk; print one line per problem (chunk index, byte offset, the valid "
     "chunks and messages before it) and how much of the log is whole",
     nullptr},
    {"trim", "LOG", "the profile log to trim",
     "write the longest prefix of whole, valid chunks, so that a log cut short by a crash can "
     "be read",
     "the log to write (required)"},
};

void defineCommandLine(CLI::App& app, CommandLine& line) {
    app.formatter(std::make_shared<vek::tools::HelpFormatter>());
    app.set_help_flag("-h,--help", "show this help and exit");
    app.set_version_flag("--version", std::string(kProgram) + " " + VEK_PROFILE_VIEWER_VERSION,
                         "show the version and exit");
    const std::string footer =
        "A file named \"-\" is standard input or output.\n\n"
        "Exit status: 0 on success, 1 when the input cannot be converted or the output\n"
        "cannot be written (check: when the log has a problem), 2 on a usage error.";
    app.footer(footer);  // the subcommands take it over
    app.require_subcommand(1);
    const CLI::Validator named(
        [](const std::string& name) { return name.empty() ? "empty file name" : ""; }, "");
    for (const Command& command : kCommands) {
        CLI::App* sub = app.add_subcommand(command.name, command.description)->group("Commands");
        sub->add_option(command.input, line.input, command.inputDescription)
            ->required()
            ->check(named);
        if (command.output == nullptr) continue;
        sub->add_option("-o,--output", line.output, command.output)
            ->check(named)
            ->option_text("FILE");
    }
    app.footer(
        "The file to write is given with -o FILE: required by encode and trim, standard\n"
        "output by default for decode. 'vek-profile-log COMMAND --help' shows a command's\n"
        "options.\n\n" +
        footer);
}

int usageError(const std::string& message) {
    std::fprintf(stderr, "%s: %s\nTry '%s --help' for more information.\n", kProgram,
                 message.c_str(), kProgram);
    return kExitUsage;
}

int print(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    return std::fflush(stdout) == 0 ? kExitOk : kExitFailure;
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

// CLI11 says only "A subcommand is required" when the first word is no command.
std::string commandLineError(const CLI::App& app, int argc, char** argv,
                             const CLI::ParseError& error) {
    if (!app.get_subcommands().empty()) return error.what();
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word.empty() || word[0] == '-') continue;
        return "unknown command '" + word + "' (decode, encode, check or trim)";
    }
    return "missing command (decode, encode, check or trim)";
}

}  // namespace

int main(int argc, char** argv) {
    CommandLine line;
    CLI::App app(
        "Decodes a binary profile log into JSON, or encodes such JSON back into a log; checks "
        "a log, or trims a cut one to its whole chunks.",
        kProgram);
    defineCommandLine(app, line);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        return print(app.help());
    } catch (const CLI::CallForVersion&) {
        return print(app.version() + "\n");
    } catch (const CLI::ParseError& error) {
        return usageError(commandLineError(app, argc, argv, error));
    }
    line.command = app.get_subcommands().front()->get_name();
    if (line.output.empty() && (line.command == "encode" || line.command == "trim")) {
        return usageError(line.command + " needs an output file (-o)");
    }
    if (line.output.empty()) line.output = "-";
    return run(line);
}
