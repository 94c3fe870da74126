#include "views/SvgCharts.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "chrometrace/TraceText.h"
#include "views/HtmlText.h"

namespace vek {
namespace profiling {
namespace {

// Bar chart layout, in pixels.
constexpr double kChartWidth = 760;
constexpr double kLabelWidth = 190;
constexpr double kValueWidth = 150;
constexpr double kRowHeight = 22;
constexpr double kBarHeight = 16;
constexpr size_t kLabelLength = 24;  // code points

// Timeline layout.
constexpr double kTimelineWidth = 1000;
constexpr double kLaneStart = 84;
constexpr double kLaneEnd = 990;
constexpr double kOpLaneY = 6;
constexpr double kOpLaneHeight = 26;
constexpr double kBackgroundLaneY = 38;
constexpr double kBackgroundLaneHeight = 16;
constexpr double kAxisY = 60;
constexpr int kTicks = 5;
constexpr int kOpColours = 6;

// A coordinate with at most two decimals and no trailing zeros ("12.5",
// "12"). Drawings hold thousands of them, so no printf.
std::string number(double value) {
    if (!(value > -1e15 && value < 1e15)) return "0";  // out of any drawing (or NaN)
    const long long hundredths = std::llround(value * 100.0);
    const unsigned long long magnitude =
        static_cast<unsigned long long>(hundredths < 0 ? -hundredths : hundredths);
    std::string result = (hundredths < 0 ? "-" : "") + std::to_string(magnitude / 100);
    const unsigned fraction = static_cast<unsigned>(magnitude % 100);
    if (fraction != 0) {
        result += '.';
        result += static_cast<char>('0' + fraction / 10);
        if (fraction % 10 != 0) result += static_cast<char>('0' + fraction % 10);
    }
    return result;
}

std::string us(uint64_t value) { return std::to_string(value) + " us"; }

std::string rect(const std::string& cssClass, double x, double y, double width, double height,
                 const std::string& title) {
    std::string svg;
    svg.reserve(96 + title.size());
    svg.append("<rect class=\"").append(cssClass).append("\" x=\"").append(number(x));
    svg.append("\" y=\"").append(number(y)).append("\" width=\"").append(number(width));
    svg.append("\" height=\"").append(number(height));
    if (title.empty()) return svg.append("\"/>");
    return svg.append("\"><title>").append(htmlEscaped(title)).append("</title></rect>");
}

std::string text(const std::string& cssClass, double x, double y, const std::string& content,
                 const char* anchor = "start") {
    return "<text class=\"" + cssClass + "\" x=\"" + number(x) + "\" y=\"" + number(y) +
           "\" text-anchor=\"" + anchor + "\">" + htmlEscaped(content) + "</text>";
}

std::string svgStart(const char* cssClass, double width, double height,
                     const std::string& description) {
    return std::string("<svg class=\"") + cssClass +
           "\" xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " + number(width) + " " +
           number(height) + "\" width=\"" + number(width) + "\" height=\"" + number(height) +
           "\" role=\"img\" aria-label=\"" + htmlEscaped(description) + "\">\n";
}

// Lays the slices of one op at the cursor and moves the cursor past them.
struct TimelineLayout {
    double scale = 0.0;  // pixels per microsecond
    uint64_t cursor = 0;
    std::string svg;

    double x(uint64_t at) const { return kLaneStart + static_cast<double>(at) * scale; }
    double width(uint64_t duration) const { return static_cast<double>(duration) * scale; }

    void slice(const std::string& cssClass, bool foreground, uint64_t duration,
               const std::string& title) {
        if (duration == 0) return;
        svg += rect(cssClass, x(cursor), foreground ? kOpLaneY : kBackgroundLaneY,
                    width(duration), foreground ? kOpLaneHeight : kBackgroundLaneHeight,
                    title + ": " + us(duration) + " at " + us(cursor)) +
               "\n";
    }

    void lay(const OpFigures& op, size_t index) {
        const uint64_t wait = op.waitUs.value_or(0);
        if (wait != 0) {
            slice("wait", true, wait, "Wait before " + op.name);
            slice("bg", false, op.waitBackgroundUs.value_or(0),
                  op.waitBackgroundNames + " (beside the wait before " + op.name + ")");
            cursor += wait;
        }
        if (op.averageUs != 0) {
            const std::string resources =
                op.resourceMask ? resourceLabel(static_cast<uint8_t>(*op.resourceMask & 0xFFu))
                                : std::string();
            slice("op c" + std::to_string(index % kOpColours), true, op.averageUs,
                  op.name + (resources.empty() ? "" : " [" + resources + "]"));
            slice("bg", false, op.backgroundUs.value_or(0),
                  op.backgroundNames + " (beside " + op.name + ")");
            cursor += op.averageUs;
        }
    }
};

uint64_t timelineLength(const GraphFigures& graph) {
    uint64_t length = 0;
    for (const OpFigures& op : graph.ops) length += op.waitUs.value_or(0) + op.averageUs;
    return length;
}

}  // namespace

std::string barChart(const std::vector<Bar>& bars, const std::string& description) {
    uint64_t largest = 0;
    for (const Bar& bar : bars) largest = std::max(largest, bar.value);
    const double area = kChartWidth - kLabelWidth - kValueWidth;
    const double height = static_cast<double>(bars.size()) * kRowHeight + 4;
    std::string svg = svgStart("bars", kChartWidth, height, description);
    double y = 2;
    for (const Bar& bar : bars) {
        const double length =
            largest == 0 ? 0.0 : static_cast<double>(bar.value) / static_cast<double>(largest) * area;
        svg += "<g><title>" + htmlEscaped(bar.title) + "</title>" +
               text("label", kLabelWidth - 6, y + 13, shortened(bar.label, kLabelLength), "end") +
               rect("bar", kLabelWidth, y + 1, length, kBarHeight, std::string()) +
               text("value", kLabelWidth + length + 6, y + 13, bar.valueText) + "</g>\n";
        y += kRowHeight;
    }
    return svg + "</svg>\n";
}

std::string timelineChart(const GraphFigures& graph) {
    const uint64_t length = timelineLength(graph);
    TimelineLayout layout;
    layout.scale = length == 0 ? 0.0 : (kLaneEnd - kLaneStart) / static_cast<double>(length);
    layout.svg = svgStart("timeline", kTimelineWidth, kAxisY + 18,
                          "Timeline of the average execution of " + graph.graphName);
    layout.svg += text("lane", kLaneStart - 6, kOpLaneY + 17, "ops", "end") +
                  text("lane", kLaneStart - 6, kBackgroundLaneY + 12, "background", "end") + "\n";
    for (size_t i = 0; i < graph.ops.size(); ++i) layout.lay(graph.ops[i], i);
    const int ticks = length == 0 ? 0 : kTicks;
    for (int tick = 0; tick <= ticks; ++tick) {
        const uint64_t at = length / kTicks * static_cast<uint64_t>(tick) +
                            length % kTicks * static_cast<uint64_t>(tick) / kTicks;
        const double x = layout.x(at);
        layout.svg += "<line class=\"tick\" x1=\"" + number(x) + "\" y1=\"" + number(kAxisY - 4) +
                      "\" x2=\"" + number(x) + "\" y2=\"" + number(kAxisY) + "\"/>" +
                      text("tick", x, kAxisY + 13, us(at),
                           tick == 0 ? "start" : tick == ticks ? "end" : "middle") +
                      "\n";
    }
    return layout.svg + "</svg>\n";
}

}  // namespace profiling
}  // namespace vek
