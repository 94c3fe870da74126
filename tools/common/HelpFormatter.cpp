#include "HelpFormatter.h"

#include <algorithm>
#include <sstream>

namespace vek {
namespace tools {
namespace {

size_t leadingBlanks(const std::string& line) {
    const size_t first = line.find_first_not_of(' ');
    return first == std::string::npos ? line.size() : first;
}

void wrapLine(const std::string& line, size_t width, size_t hangingIndent, std::string& out) {
    const size_t indent = leadingBlanks(line);
    std::string current = line.substr(0, indent);
    size_t lineStart = indent;  // where the first word of this output line goes
    std::string pendingBlanks;  // blanks after the last word: kept unless the line breaks
    size_t position = indent;
    while (position < line.size()) {
        const size_t wordEnd = std::min(line.find(' ', position), line.size());
        const std::string word = line.substr(position, wordEnd - position);
        position = wordEnd;
        if (word.empty()) {  // one blank of a run of blanks
            pendingBlanks += ' ';
            ++position;
            continue;
        }
        const bool first = current.size() == lineStart;
        if (!first && current.size() + pendingBlanks.size() + word.size() > width) {
            out += current + "\n";
            lineStart = indent + hangingIndent;
            current.assign(lineStart, ' ');
        } else {
            current += pendingBlanks;
        }
        pendingBlanks.clear();
        current += word;
    }
    out += current;
}

}  // namespace

std::string wrapText(const std::string& text, size_t width, size_t hangingIndent) {
    std::string out;
    std::istringstream lines(text);
    std::string line;
    bool first = true;
    while (std::getline(lines, line)) {
        if (!first) out += "\n";
        first = false;
        wrapLine(line, width, hangingIndent, out);
    }
    return out;
}

std::string HelpFormatter::make_description(const CLI::App*) const { return std::string(); }

std::string HelpFormatter::make_usage(const CLI::App* app, std::string name) const {
    // The usage line first, then what the program does. A program with subcommands gets one
    // line per subcommand, the later ones led by "or:" as GNU tools (and help2man) have them.
    std::string usage;
    for (const CLI::App* subcommand : app->get_subcommands({})) {
        const std::string line =
            CLI::Formatter::make_usage(subcommand, name + " " + subcommand->get_name());
        usage += usage.empty() ? line : "  or: " + line.substr(line.find(':') + 1);
    }
    if (usage.empty()) usage = CLI::Formatter::make_usage(app, name);
    return usage + "\n" + wrapText(app->get_description(), kHelpWidth) + "\n";
}

std::string HelpFormatter::make_option_name(const CLI::Option* option, bool positional) const {
    std::string name = CLI::Formatter::make_option_name(option, positional);
    // A flag's default value is written in braces after its name.
    const size_t brace = name.find('{');
    if (brace != std::string::npos) name.erase(brace, name.find('}', brace) - brace + 1);
    return name;
}

std::string HelpFormatter::make_option_desc(const CLI::Option* option) const {
    return wrapText(option->get_description(), kHelpWidth - kOptionColumn);
}

std::string HelpFormatter::make_subcommand(const CLI::App* subcommand) const {
    std::ostringstream out;
    CLI::detail::format_help(out, subcommand->get_name(),
                             wrapText(subcommand->get_description(), kHelpWidth - kOptionColumn),
                             kOptionColumn);
    return out.str();
}

}  // namespace tools
}  // namespace vek
