// The layout of both tools' --help: descriptions wrapped to an 80-column
// terminal, value names instead of CLI11's type and validator texts, and one
// usage line per subcommand.
#pragma once

#include <CLI/CLI.hpp>

#include <cstddef>
#include <string>

namespace vek {
namespace tools {

constexpr size_t kHelpWidth = 80;

// Wraps each line of `text` at word boundaries to `width` columns. A line
// wrapped in two gets its continuation indented by `hangingIndent` blanks
// plus the line's own leading blanks.
std::string wrapText(const std::string& text, size_t width, size_t hangingIndent = 0);

class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter() { column_width(kOptionColumn); }

    std::string make_description(const CLI::App* app) const override;
    std::string make_usage(const CLI::App* app, std::string name) const override;
    std::string make_option_name(const CLI::Option* option, bool positional) const override;
    std::string make_option_desc(const CLI::Option* option) const override;
    std::string make_subcommand(const CLI::App* subcommand) const override;

    // Where option descriptions start.
    static constexpr size_t kOptionColumn = 28;
};

}  // namespace tools
}  // namespace vek
