// Every label the reports print for the bundled sample is named in
// docs/reading-the-reports.md (as inline code outside the quoted output), so
// that a new label cannot land unexplained.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <regex>
#include <set>
#include <sstream>

#include "tools/ToolRun.h"

namespace vek::profiling {
namespace {

using Labels = std::set<std::string>;

// The text before each colon that ends a word ("NetRun: 1703 us"), without the
// value before a second label ("Epoch Timestamp: 17 Steady Clock Timestamp: 5").
Labels colonLabels(const std::string& text) {
    Labels labels;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        size_t start = line.find_first_not_of(' ');
        for (size_t colon = line.find(':'); colon != std::string::npos && start < colon;
             colon = line.find(':', colon + 1)) {
            if (colon + 1 < line.size() && line[colon + 1] != ' ') continue;  // 15:04:05
            std::string label = line.substr(start, colon - start);
            if (start != line.find_first_not_of(' ')) label.erase(0, label.find(' ') + 1);
            if (!label.empty()) labels.insert(label);
            start = colon + 2;
        }
    }
    return labels;
}

std::vector<std::string> fields(const std::string& line) {
    std::vector<std::string> fields;
    std::istringstream in(line);
    for (std::string field; std::getline(in, field, ',');) fields.push_back(field.erase(0, field[0] == ' '));
    return fields;
}

// The 4 header rows' names, the column names and the words of the columns that
// hold a vocabulary (Message, Unit of Measurement, Timing Source, Event Level).
Labels csvLabels(const std::string& text) {
    Labels labels;
    std::istringstream lines(text);
    std::string line;
    for (int row = 0; row < 4 && std::getline(lines, line); ++row) labels.insert(fields(line)[0]);
    std::getline(lines, line);
    for (const std::string& column : fields(line)) labels.insert(column);
    while (std::getline(lines, line)) {
        const std::vector<std::string> row = fields(line);
        for (size_t column : {1, 3, 4, 5}) {
            if (column < row.size()) labels.insert(row[column]);
        }
    }
    return labels;
}

// Every key, the words that the keys ph, tid and cname take, and the names of metadata events.
void addFields(const rapidjson::Value& value, Labels& labels) {
    if (value.IsArray()) {
        for (const auto& item : value.GetArray()) addFields(item, labels);
    }
    if (!value.IsObject()) return;
    for (const auto& member : value.GetObject()) {
        const std::string key = member.name.GetString();
        labels.insert(key);
        const bool metadata = value.HasMember("ph") && value["ph"] == "M";
        const bool word = key == "ph" || key == "tid" || key == "cname" || (key == "name" && metadata);
        if (word && member.value.IsString()) labels.insert(member.value.GetString());
        addFields(member.value, labels);
    }
}

Labels jsonFields(const std::string& text) {
    rapidjson::Document document;
    Labels labels;
    if (!document.Parse(text.c_str()).HasParseError()) addFields(document, labels);
    return labels;
}

// The guide's inline code outside fenced blocks, and the labels in it.
Labels namedInGuide(const std::string& guide) {
    Labels named;
    std::istringstream lines(guide);
    bool fenced = false;
    const std::regex code("`([^`]+)`");
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("```", 0) == 0) fenced = !fenced;
        if (fenced || line.rfind("```", 0) == 0) continue;
        for (std::sregex_iterator m(line.begin(), line.end(), code), end; m != end; ++m) {
            named.insert((*m)[1].str());
            named.merge(colonLabels((*m)[1].str()));
        }
    }
    return named;
}

TEST(ReadingGuide, NamesEveryLabelOfTheSamplesReports) {
    testlog::TempDir dir;
    const auto run = [&](const std::string& arguments) {
        const testtools::ToolRun result = testtools::runTool(
            dir, VEK_PROFILE_VIEWER_TOOL, "'" VEK_SAMPLE_DIR "/linting_sample.log' " + arguments);
        EXPECT_EQ(result.status, 0) << arguments << "\n" << result.err;
        return result.out;
    };
    const auto file = [&](const std::string& name) { return testlog::readFile(dir.file(name)); };
    const std::pair<std::string, Labels> reports[] = {
        {"summary", colonLabels(run("-m summary -o rows.csv"))},
        {"CSV export", csvLabels(file("rows.csv"))},
        {"trace mode's summary", colonLabels(run("-o exact.json") + run("--trace-format portable -o portable.json"))},
        {"exact trace", jsonFields(file("exact.json"))},
        {"portable trace", jsonFields(file("portable.json"))},
        {"top view", jsonFields(run("-m top --format json"))},
        {"diff view", jsonFields(run("-m diff --format json '" VEK_SAMPLE_DIR "/linting_sample_changed.log'"))},
    };
    const Labels named = namedInGuide(testlog::readFile(VEK_SOURCE_DIR "/docs/reading-the-reports.md"));
    ASSERT_FALSE(named.empty()) << "the guide is missing";
    for (const auto& [report, labels] : reports) {
        SCOPED_TRACE(report);
        EXPECT_GT(labels.size(), 5u) << "the report printed too little to check";
        std::string missing;
        for (const std::string& label : labels) {
            if (named.count(label) == 0) missing += "\n  " + label;
        }
        EXPECT_TRUE(missing.empty()) << "labels that docs/reading-the-reports.md does not name:" << missing;
    }
}

}  // namespace
}  // namespace vek::profiling
