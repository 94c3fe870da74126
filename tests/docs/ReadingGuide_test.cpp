// The reader's guide, docs/reading-the-reports.md, explains every label that
// the reports print for the bundled sample: a label that the guide does not
// name in its text (as inline code, outside the quoted output) fails here, so
// a new label cannot land unexplained.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using testlog::readFile;
using testlog::TempDir;
using Labels = std::set<std::string>;

// The labels of a report line: the text before each colon that ends a word
// ("NetRun: 1703 us", "Init Stats:"), without the value that precedes a
// second label ("Epoch Timestamp: 1718031845123456 Steady Clock Timestamp: 5").
void addColonLabels(std::string_view line, Labels& labels) {
    size_t start = line.find_first_not_of(' ');
    bool first = true;
    for (size_t colon = line.find(':'); colon != std::string_view::npos && start < colon;
         colon = line.find(':', colon + 1)) {
        if (colon + 1 < line.size() && line[colon + 1] != ' ') continue;  // 15:04:05
        std::string_view label = line.substr(start, colon - start);
        if (!first) label.remove_prefix(std::min(label.size(), label.find(' ') + 1));
        if (!label.empty()) labels.emplace(label);
        first = false;
        start = colon + 2;
    }
}

Labels colonLabels(const std::string& text) {
    Labels labels;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) addColonLabels(line, labels);
    return labels;
}

std::vector<std::string> split(const std::string& line, const std::string& separator) {
    std::vector<std::string> fields;
    size_t start = 0;
    for (size_t end; (end = line.find(separator, start)) != std::string::npos;
         start = end + separator.size()) {
        fields.push_back(line.substr(start, end - start));
    }
    fields.push_back(line.substr(start));
    return fields;
}

// The header rows' names, the column names and the words of the columns that
// hold a vocabulary (Message, Unit of Measurement, Timing Source, Event Level).
Labels csvLabels(const std::string& text) {
    Labels labels;
    std::istringstream lines(text);
    std::string line;
    for (int row = 0; row < 4 && std::getline(lines, line); ++row) {
        labels.insert(split(line, ", ").front());
    }
    std::getline(lines, line);
    for (const std::string& column : split(line, ", ")) labels.insert(column);
    while (std::getline(lines, line)) {
        const std::vector<std::string> fields = split(line, ",");
        for (size_t column : {1, 3, 4, 5}) {
            if (column < fields.size()) labels.insert(fields[column]);
        }
    }
    return labels;
}

// Every key, and the words that a trace's keys ph, tid and cname take.
void addFields(const rapidjson::Value& value, Labels& labels) {
    if (value.IsArray()) {
        for (const auto& item : value.GetArray()) addFields(item, labels);
    } else if (value.IsObject()) {
        for (const auto& member : value.GetObject()) {
            const std::string key = member.name.GetString();
            labels.insert(key);
            if ((key == "ph" || key == "tid" || key == "cname") && member.value.IsString()) {
                labels.insert(member.value.GetString());
            }
            addFields(member.value, labels);
        }
        if (value.HasMember("ph") && value["ph"] == "M") labels.insert(value["name"].GetString());
    }
}

Labels jsonFields(const std::string& text) {
    rapidjson::Document document;
    document.Parse(text.c_str());
    Labels labels;
    if (!document.HasParseError()) addFields(document, labels);
    return labels;
}

// What the guide names: its inline code outside fenced blocks, and the labels
// in it ("`NetRun: 1703 us`" names NetRun).
Labels namedInGuide(const std::string& guide) {
    Labels named;
    std::istringstream lines(guide);
    bool fenced = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("```", 0) == 0) fenced = !fenced;
        if (fenced || line.rfind("```", 0) == 0) continue;
        for (size_t open = line.find('`'); open != std::string::npos;) {
            const size_t close = line.find('`', open + 1);
            if (close == std::string::npos) break;
            const std::string code = line.substr(open + 1, close - open - 1);
            named.insert(code);
            addColonLabels(code, named);
            open = line.find('`', close + 1);
        }
    }
    return named;
}

TEST(ReadingGuide, NamesEveryLabelOfTheSamplesReports) {
    TempDir dir;
    const auto run = [&](const std::string& arguments) {
        const std::string command = "cd '" + dir.path() + "' && '" + VEK_PROFILE_VIEWER_TOOL +
                                    "' '" + VEK_SAMPLE_DIR + "/linting_sample.log' " + arguments +
                                    " > stdout 2> stderr";
        const int status = std::system(command.c_str());
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << command;
        return readFile(dir.file("stdout"));
    };
    const std::string summary = run("-m summary -o rows.csv");
    const std::string traceSummary = run("-o exact.json");
    run("--trace-format portable -o portable.json");
    const std::string changed = std::string(VEK_SAMPLE_DIR) + "/linting_sample_changed.log";
    const struct {
        const char* report;
        std::string text;
        Labels (*labelsOf)(const std::string&);
    } reports[] = {
        {"summary", summary, colonLabels},
        {"CSV export", readFile(dir.file("rows.csv")), csvLabels},
        {"trace mode's summary", traceSummary, colonLabels},
        {"exact trace", readFile(dir.file("exact.json")), jsonFields},
        {"portable trace", readFile(dir.file("portable.json")), jsonFields},
        // The views' JSON keys are their CSV columns and their text's figures.
        {"top view", run("-m top --format json"), jsonFields},
        {"diff view", run("-m diff --format json '" + changed + "'"), jsonFields},
    };
    const Labels named =
        namedInGuide(readFile(std::string(VEK_SOURCE_DIR) + "/docs/reading-the-reports.md"));
    ASSERT_FALSE(named.empty()) << "the guide is missing";
    for (const auto& report : reports) {
        SCOPED_TRACE(report.report);
        const Labels labels = report.labelsOf(report.text);
        EXPECT_GT(labels.size(), 5u) << "the report printed too little to check";
        std::string missing;
        for (const std::string& label : labels) {
            if (named.count(label) == 0) missing += "\n  " + label;
        }
        EXPECT_TRUE(missing.empty()) << "labels that docs/reading-the-reports.md does not name:"
                                     << missing;
    }
}

}  // namespace
}  // namespace profiling
}  // namespace vek
