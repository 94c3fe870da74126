// vek-profile-log: decodes a binary profile log to JSON and encodes such
// JSON back into a log; checks a log and trims a cut one to its whole chunks.
#include <sys/stat.h>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>

#include "CheckCommand.h"
#include "HelpFormatter.h"
#include "InputFile.h"
#include "LogJson.h"
#include "OutputFile.h"
#include "TrimCommand.h"
#include "VekVersion.h"

namespace {

using namespace vek::profiling;
using vek::tools::OutputFile;

constexpr char kProgram[] = "vek-profile-log";
constexpr char kCommandNames[] = "decode, encode, check or trim";

// The commands, their operand and what they do; `output` describes -o, if the command has it.
struct Command {
    const char *name, *input, *inputDescription, *description, *output;
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

// Defines the command line; `output` stays empty when -o is not given.
void defineCommandLine(CLI::App& app, std::string& input, std::string& output) {
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
        sub->add_option(command.input, input, command.inputDescription)
            ->required()
            ->check(named);
        if (command.output == nullptr) continue;
        sub->add_option("-o,--output", output, command.output)
            ->check(named)
            ->option_text("FILE");
    }
    app.footer(
        "The file to write is given with -o FILE: required by encode and trim, standard\n"
        "output by default for decode. 'vek-profile-log COMMAND --help' shows a command's\n"
        "options.\n\n" +
        footer);
}

int fail(const std::string& message, int status = 1) {
    std::fprintf(stderr, "%s: %s\n", kProgram, message.c_str());
    return status;
}

int usageError(const std::string& message) {
    return fail(message + "\nTry '" + kProgram + " --help' for more information.", 2);
}

// CLI11 says only "A subcommand is required" when the first word is no command.
std::string commandLineError(const CLI::App& app, int argc, char** argv,
                             const CLI::ParseError& error) {
    if (!app.get_subcommands().empty()) return error.what();
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word.empty() || word[0] == '-') continue;
        return "unknown command '" + word + "' (" + kCommandNames + ")";
    }
    return std::string("missing command (") + kCommandNames + ")";
}

int print(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    return std::fflush(stdout) == 0 ? 0 : 1;
}

// The output replaces its file only when whole, but the input would still be lost.
bool sameFile(const std::string& a, const std::string& b) {
    struct stat first {};
    struct stat second {};
    return a != "-" && b != "-" && ::stat(a.c_str(), &first) == 0 &&
           ::stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

int convert(const std::string& command, const std::string& inputPath,
            const std::string& outputPath) {
    const bool decoding = command == "decode";
    // A log that cannot be one is refused before the output is created; an
    // empty log decodes to no chunks.
    const std::unique_ptr<InputFile> input = openInput(inputPath, decoding, true);
    if (!input) return 1;
    std::string error;
    const auto output = OutputFile::open(outputPath, OutputFile::Mode::kReplace, error);
    if (!output) return fail("cannot write " + outputPath + ": " + error);
    const ConversionStatus status = decoding ? decodeLog(input->get(), output->stream())
                                             : encodeJson(input->get(), output->stream());
    if (!status.warning.empty()) fail("warning: " + inputPath + ": " + status.warning);
    if (!status.ok()) return fail(inputPath + ": " + status.error);
    if (!output->commit(error)) return fail("cannot write " + outputPath + ": " + error);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::string input;
    std::string output;
    CLI::App app(
        "Decodes a binary profile log into JSON, or encodes such JSON back into a log; checks "
        "a log, or trims a cut one to its whole chunks.",
        kProgram);
    defineCommandLine(app, input, output);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        return print(app.help());
    } catch (const CLI::CallForVersion&) {
        return print(app.version() + "\n");
    } catch (const CLI::ParseError& error) {
        return usageError(commandLineError(app, argc, argv, error));
    }
    const std::string command = app.get_subcommands().front()->get_name();
    if (command == "check") return runCheck(input);
    if (output.empty() && command != "decode") {
        return usageError(command + " needs an output file (-o)");
    }
    if (output.empty()) output = "-";
    if (sameFile(input, output)) return fail("the output " + output + " is the input file");
    return command == "trim" ? runTrim(input, output) : convert(command, input, output);
}
