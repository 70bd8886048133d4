#include "ClockPlot.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <iterator>
#include <map>
#include <utility>

namespace {

constexpr double kWidth = 1000;
constexpr double kHeight = 700;
constexpr double kLeft = 70;
constexpr double kRight = 970;
constexpr int kBinsPerDecade = 12;
constexpr double kTallestBar = 0.8;  // of the histogram's height; labels stand above

constexpr const char* kProducedColour = "#2a7f62";
constexpr const char* kReceivedColour = "#c2571a";
constexpr const char* kInk = "#333";
constexpr const char* kGrid = "#ddd";

/// Microseconds on a logarithmic scale; what is less than one counts as one.
double decades(double micros) {
    return std::log10(std::max(micros, 1.0));
}

std::string text_of_micros(double micros) {
    if (micros < 1000) return fmt::format("{:g} µs", micros);
    if (micros < 1e6) return fmt::format("{:g} ms", micros / 1000);
    return fmt::format("{:g} s", micros / 1e6);
}

struct Panel {
    double top, bottom;
    double At(double share) const { return bottom - share * (bottom - top); }
};

constexpr Panel kHistogram = {90, 340};
constexpr Panel kTimeLine = {430, 640};

class Drawing {
public:
    explicit Drawing(const std::string& title) {
        add(R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {} {}" width="{}" height="{}" )"
            R"(font-family="sans-serif" font-size="13" fill="{}">)"
            "\n",
            kWidth, kHeight, kWidth, kHeight, kInk);
        add("<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n");
        Text(kLeft, 30, "start", title, 17);
    }

    void Text(double x, double y, const char* anchor, const std::string& text, int size = 13,
              const char* colour = kInk) {
        // A white rim keeps it readable on bars and lines.
        add(R"(<text x="{:.1f}" y="{:.1f}" text-anchor="{}" font-size="{}" fill="{}" )"
            R"(paint-order="stroke" stroke="white" stroke-width="3">{}</text>)"
            "\n",
            x, y, anchor, size, colour, escaped(text));
    }
    void Line(double x1, double y1, double x2, double y2, const char* colour,
              const char* more = "") {
        add(R"(<line x1="{:.1f}" y1="{:.1f}" x2="{:.1f}" y2="{:.1f}" stroke="{}" {}/>)"
            "\n",
            x1, y1, x2, y2, colour, more);
    }
    void Path(const std::string& data, const char* fill, const char* stroke, double opacity) {
        add(R"(<path d="{}" fill="{}" stroke="{}" fill-opacity="{}" stroke-width="1.5"/>)"
            "\n",
            data, fill, stroke, opacity);
    }
    void Dots(const std::string& data, const char* colour) {
        add(R"(<path d="{}" stroke="{}" stroke-width="2.4" stroke-linecap="round" )"
            R"(stroke-opacity="0.75" fill="none"/>)"
            "\n",
            data, colour);
    }
    std::string Finish() && { return std::move(fText) + "</svg>\n"; }

private:
    template <class... Arguments>
    void add(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
        fmt::format_to(std::back_inserter(fText), format, std::forward<Arguments>(arguments)...);
    }
    static std::string escaped(const std::string& text) {
        std::string result;
        for (const char c : text) {
            switch (c) {
                case '<':
                    result += "&lt;";
                    break;
                case '&':
                    result += "&amp;";
                    break;
                default:
                    result += c;
            }
        }
        return result;
    }

    std::string fText;
};

using Series = long long MeasuredTick::*;

std::vector<long long> in_order(const ClockFigures& figures, Series series) {
    std::vector<long long> values;
    values.reserve(figures.ticks.size());
    for (const MeasuredTick& tick : figures.ticks) values.push_back(tick.*series);
    std::sort(values.begin(), values.end());
    return values;
}

/// Ticks by bin of the logarithmic scale.
std::map<int, int> bins_of(const ClockFigures& figures, Series series) {
    std::map<int, int> bins;
    for (const MeasuredTick& tick : figures.ticks) {
        ++bins[static_cast<int>(decades(static_cast<double>(tick.*series)) * kBinsPerDecade)];
    }
    return bins;
}

/// How far both scales of lateness reach: whole decades, two at the least.
double decades_shown(const ClockFigures& figures) {
    double most = 2;
    for (const MeasuredTick& tick : figures.ticks) {
        most = std::max(most, std::ceil(decades(static_cast<double>(tick.receivedLate) + 1)));
    }
    return most;
}

double x_of_decade(double decade, double shown) {
    return kLeft + decade / shown * (kRight - kLeft);
}

void draw_bars(Drawing& drawing, const std::map<int, int>& bins, int most, double shown,
               const char* colour, double opacity) {
    std::string outline;
    for (const auto& [bin, count] : bins) {
        const double left = x_of_decade(static_cast<double>(bin) / kBinsPerDecade, shown);
        const double right = x_of_decade((bin + 1.0) / kBinsPerDecade, shown);
        const double top = kHistogram.At(kTallestBar * count / most);
        fmt::format_to(std::back_inserter(outline), "M{:.1f} {:.1f}V{:.1f}H{:.1f}V{:.1f}", left,
                       kHistogram.bottom, top, right, kHistogram.bottom);
    }
    drawing.Path(outline, colour, colour, opacity);
}

/// One dashed line a percentile, labelled on rows of their own so that close ones stay readable.
void draw_percentiles(Drawing& drawing, const ClockFigures& figures, double shown) {
    const std::vector<long long> received = in_order(figures, &MeasuredTick::receivedLate);
    struct Mark {
        const char* name;
        double share;
    };
    double row = kHistogram.top + 12;
    for (const Mark& mark : {Mark{"p50", 0.5}, Mark{"p99", 0.99}, Mark{"max", 1.0}}) {
        const auto micros = static_cast<double>(PercentileOf(received, mark.share));
        const double x = x_of_decade(decades(micros), shown);
        drawing.Line(x, kHistogram.top, x, kHistogram.bottom, kReceivedColour,
                     R"(stroke-dasharray="4 3")");
        const bool left = x > (kLeft + kRight) / 2;
        drawing.Text(left ? x - 5 : x + 5, row, left ? "end" : "start",
                     fmt::format("{} {}", mark.name, text_of_micros(micros)), 12, kReceivedColour);
        row += 16;
    }
}

void draw_histogram(Drawing& drawing, const ClockFigures& figures, double shown) {
    const auto produced = bins_of(figures, &MeasuredTick::producedLate);
    const auto received = bins_of(figures, &MeasuredTick::receivedLate);
    int most = 1;
    for (const auto& bins : {produced, received}) {
        for (const auto& bin : bins) most = std::max(most, bin.second);
    }
    drawing.Text(kLeft, kHistogram.top - 14, "start", "Ticks by lateness");
    for (int decade = 0; decade <= static_cast<int>(shown); ++decade) {
        const double x = x_of_decade(decade, shown);
        drawing.Line(x, kHistogram.top, x, kHistogram.bottom, kGrid);
        drawing.Text(x, kHistogram.bottom + 20, "middle", text_of_micros(std::pow(10.0, decade)));
    }
    draw_bars(drawing, produced, most, shown, kProducedColour, 0.35);
    draw_bars(drawing, received, most, shown, kReceivedColour, 0.2);
    draw_percentiles(drawing, figures, shown);
    drawing.Line(kLeft, kHistogram.bottom, kRight, kHistogram.bottom, kInk);
    drawing.Text(kLeft - 8, kHistogram.At(kTallestBar) + 5, "end", fmt::format("{}", most));
    drawing.Text(kLeft - 8, kHistogram.bottom + 5, "end", "0");
}

/// Dots at tenths of a pixel; equal ones once, which keeps long measurements small.
std::string dots_of(const ClockFigures& figures, Series series, double shown, double micros) {
    std::string data;
    std::pair<long, long> last{-1, -1};
    for (const MeasuredTick& tick : figures.ticks) {
        const double x = kLeft + static_cast<double>(tick.due) / micros * (kRight - kLeft);
        const double y = kTimeLine.At(decades(static_cast<double>(tick.*series)) / shown);
        const std::pair<long, long> place{std::lround(x * 2), std::lround(y * 2)};
        if (place == last) continue;
        last = place;
        fmt::format_to(std::back_inserter(data), "M{:.1f} {:.1f}h0", x, y);
    }
    return data;
}

/// A step of 1, 2 or 5 times a power of ten that divides `whole` into four to ten.
double round_step(double whole) {
    const double power = std::pow(10.0, std::floor(std::log10(whole / 4)));
    for (const double factor : {5.0, 2.0}) {
        if (whole / (factor * power) >= 4) return factor * power;
    }
    return power;
}

void draw_time_line(Drawing& drawing, const ClockFigures& figures, double shown) {
    const double micros =
        figures.ticks.empty() ? 1 : std::max(1.0, static_cast<double>(figures.ticks.back().due));
    drawing.Text(kLeft, kTimeLine.top - 14, "start", "Lateness over time");
    for (int decade = 0; decade <= static_cast<int>(shown); ++decade) {
        const double y = kTimeLine.At(decade / shown);
        drawing.Line(kLeft, y, kRight, y, kGrid);
        drawing.Text(kLeft - 8, y + 4, "end", text_of_micros(std::pow(10.0, decade)));
    }
    const double seconds = micros / 1e6;
    const double step = round_step(seconds);
    for (double mark = 0; mark <= seconds; mark += step) {
        const double x = kLeft + mark / seconds * (kRight - kLeft);
        drawing.Line(x, kTimeLine.bottom, x, kTimeLine.bottom + 5, kInk);
        drawing.Text(x, kTimeLine.bottom + 20, "middle", fmt::format("{:.4g} s", mark));
    }
    drawing.Dots(dots_of(figures, &MeasuredTick::receivedLate, shown, micros), kReceivedColour);
    drawing.Dots(dots_of(figures, &MeasuredTick::producedLate, shown, micros), kProducedColour);
    drawing.Line(kLeft, kTimeLine.bottom, kRight, kTimeLine.bottom, kInk);
}

void draw_legend(Drawing& drawing) {
    drawing.Text(kRight - 210, 30, "end", "● produced by the clock", 13, kProducedColour);
    drawing.Text(kRight, 30, "end", "● received by its watcher", 13, kReceivedColour);
}

}  // namespace

std::string DrawClockFigures(const std::string& title, const ClockFigures& figures) {
    Drawing drawing(title);
    const double shown = decades_shown(figures);
    draw_legend(drawing);
    draw_histogram(drawing, figures, shown);
    draw_time_line(drawing, figures, shown);
    return std::move(drawing).Finish();
}
