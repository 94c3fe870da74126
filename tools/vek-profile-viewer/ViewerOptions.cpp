#include "ViewerOptions.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>

namespace vek {
namespace viewer {
namespace {

bool parseInteger(const std::string& text, long minimum, long maximum, long& value) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    const long parsed = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || parsed < minimum || parsed > maximum) return false;
    value = parsed;
    return true;
}

bool parseLogLevel(const std::string& text, int32_t& level) {
    static const std::vector<std::string> names = {"none", "error", "warning", "info",
                                                   "verbose", "debug"};
    for (size_t i = 0; i < names.size(); ++i) {
        if (text == names[i]) {
            level = static_cast<int32_t>(i);
            return true;
        }
    }
    long number = 0;
    if (!parseInteger(text, 0, 5, number)) return false;
    level = static_cast<int32_t>(number);
    return true;
}

bool parseMode(const std::string& text, OutputMode& mode) {
    if (text == "trace") mode = OutputMode::Trace;
    else if (text == "summary") mode = OutputMode::Summary;
    else if (text == "header") mode = OutputMode::Header;
    else return false;
    return true;
}

// Splits "--name=value" into name and value; a bare "--name" has no value.
void splitLongOption(const std::string& argument, std::string& name,
                     std::optional<std::string>& value) {
    const size_t equals = argument.find('=');
    name = argument.substr(0, equals);
    if (equals != std::string::npos) value = argument.substr(equals + 1);
}

}  // namespace

ParseResult parseViewerOptions(const std::vector<std::string>& arguments) {
    ViewerOptions options;
    std::vector<std::string> positional;
    auto fail = [](std::string message) { return ParseResult{std::nullopt, std::move(message)}; };

    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--") {
            positional.insert(positional.end(), arguments.begin() + static_cast<long>(i) + 1,
                              arguments.end());
            break;
        }
        if (argument.size() < 2 || argument[0] != '-') {
            positional.push_back(argument);
            continue;
        }
        std::string name;
        std::optional<std::string> inlineValue;
        splitLongOption(argument, name, inlineValue);
        static const std::vector<std::pair<std::string, std::string>> shortNames = {
            {"-i", "--input"}, {"-o", "--output"}, {"-m", "--mode"}, {"-v", "--visibility"},
            {"-l", "--log-level"}, {"-h", "--help"}, {"-V", "--version"}};
        for (const auto& [shortName, longName] : shortNames) {
            if (name == shortName) name = longName;
        }
        // Options that take a value read it inline (--name=value) or from the next argument.
        auto takeValue = [&](std::string& value) -> bool {
            if (inlineValue) {
                value = *inlineValue;
                return true;
            }
            if (i + 1 >= arguments.size()) return false;
            value = arguments[++i];
            return true;
        };
        std::string value;
        if (name == "--help") {
            options.showHelp = true;
        } else if (name == "--version") {
            options.showVersion = true;
        } else if (name == "--save-objects") {
            options.saveObjects = true;
            if (inlineValue) options.objectDirectory = *inlineValue;
        } else if (name == "--input" || name == "--output" || name == "--mode" ||
                   name == "--visibility" || name == "--log-level" || name == "--reader") {
            if (!takeValue(value)) return fail("option " + name + " needs a value");
            long number = 0;
            if (name == "--input") {
                options.inputPath = value;
            } else if (name == "--output") {
                options.outputPath = value;
            } else if (name == "--reader") {
                options.readerPath = value;
            } else if (name == "--mode") {
                if (!parseMode(value, options.mode)) {
                    return fail("unknown mode '" + value + "' (trace, summary or header)");
                }
            } else if (name == "--visibility") {
                if (!parseInteger(value, -128, 127, number)) {
                    return fail("visibility level must be a number from -128 to 127");
                }
                options.visibilityLevel = static_cast<int8_t>(number);
            } else if (!parseLogLevel(value, options.logLevel)) {
                return fail("log level must be 0..5 or none, error, warning, info, verbose, debug");
            }
        } else {
            return fail("unknown option " + argument);
        }
    }
    if (options.showHelp || options.showVersion) return ParseResult{options, ""};
    if (options.inputPath.empty() && !positional.empty()) {
        options.inputPath = positional.front();
        positional.erase(positional.begin());
    }
    if (!positional.empty()) return fail("unexpected argument " + positional.front());
    if (options.inputPath.empty()) return fail("no input log given");
    return ParseResult{options, ""};
}

std::string defaultTracePath(const std::string& inputPath) {
    return std::filesystem::path(inputPath).stem().string() + ".trace.json";
}

std::string viewerUsage() {
    return "Usage: vek-profile-viewer [OPTIONS] LOG\n"
           "Turns a binary profile log into a Chrome trace, a text summary or a CSV export.\n"
           "\n"
           "  -i, --input LOG          the profile log to read (or give it as the argument)\n"
           "  -m, --mode MODE          trace    the trace file plus a short summary (default)\n"
           "                           summary  the full text summary; with --output the CSV\n"
           "                                    export is appended to that file\n"
           "                           header   the log header alone\n"
           "  -o, --output PATH        trace mode: the trace file (default: LOG's name with\n"
           "                           .trace.json in the current directory);\n"
           "                           summary mode: the CSV file to append to (default: none)\n"
           "      --save-objects[=DIR] also save the object events as files, in DIR (default:\n"
           "                           the current directory); never overwrites a file\n"
           "  -v, --visibility N       skip messages whose visibility is >= N (-128..127;\n"
           "                           default 127: keep every message)\n"
           "  -l, --log-level LEVEL    library diagnostics on standard error: none, error,\n"
           "                           warning, info, verbose, debug or 0..5 (default: error)\n"
           "      --reader PATH        the reader plug-in to load (default: the one installed\n"
           "                           with this tool)\n"
           "  -h, --help               show this help\n"
           "  -V, --version            show the version\n"
           "\n"
           "Exit status: 0 success, 1 the log or the output was refused, 2 usage error.\n";
}

}  // namespace viewer
}  // namespace vek
