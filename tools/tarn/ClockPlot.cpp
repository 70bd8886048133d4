#include "ClockPlot.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <iterator>
#include <map>
#include <utility>

#include "SvgDrawing.h"

namespace {

constexpr int kBinsPerDecade = 12;
constexpr double kTallestBar = 0.8;  // of the histogram's height; labels stand above

constexpr const char* kProducedColour = "#2a7f62";
constexpr const char* kReceivedColour = "#c2571a";

/// Microseconds on a logarithmic scale; what is less than one counts as one.
double decades(double micros) {
    return std::log10(std::max(micros, 1.0));
}

std::string text_of_micros(double micros) {
    if (micros < 1000) return fmt::format("{:g} µs", micros);
    if (micros < 1e6) return fmt::format("{:g} ms", micros / 1000);
    return fmt::format("{:g} s", micros / 1e6);
}

constexpr SvgPanel kHistogram = {90, 340};
constexpr SvgPanel kTimeLine = {430, 640};

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
    return SvgDrawing::kLeft + decade / shown * (SvgDrawing::kRight - SvgDrawing::kLeft);
}

void draw_bars(SvgDrawing& drawing, const std::map<int, int>& bins, int most, double shown,
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
void draw_percentiles(SvgDrawing& drawing, const ClockFigures& figures, double shown) {
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
        const bool left = x > (SvgDrawing::kLeft + SvgDrawing::kRight) / 2;
        drawing.Text(left ? x - 5 : x + 5, row, left ? "end" : "start",
                     fmt::format("{} {}", mark.name, text_of_micros(micros)), 12, kReceivedColour);
        row += 16;
    }
}

void draw_histogram(SvgDrawing& drawing, const ClockFigures& figures, double shown) {
    const auto produced = bins_of(figures, &MeasuredTick::producedLate);
    const auto received = bins_of(figures, &MeasuredTick::receivedLate);
    int most = 1;
    for (const auto& bins : {produced, received}) {
        for (const auto& bin : bins) most = std::max(most, bin.second);
    }
    drawing.Text(SvgDrawing::kLeft, kHistogram.top - 14, "start", "Ticks by lateness");
    for (int decade = 0; decade <= static_cast<int>(shown); ++decade) {
        const double x = x_of_decade(decade, shown);
        drawing.Line(x, kHistogram.top, x, kHistogram.bottom, SvgDrawing::kGrid);
        drawing.Text(x, kHistogram.bottom + 20, "middle", text_of_micros(std::pow(10.0, decade)));
    }
    draw_bars(drawing, produced, most, shown, kProducedColour, 0.35);
    draw_bars(drawing, received, most, shown, kReceivedColour, 0.2);
    draw_percentiles(drawing, figures, shown);
    drawing.Line(SvgDrawing::kLeft, kHistogram.bottom, SvgDrawing::kRight, kHistogram.bottom,
                 SvgDrawing::kInk);
    drawing.Text(SvgDrawing::kLeft - 8, kHistogram.At(kTallestBar) + 5, "end",
                 fmt::format("{}", most));
    drawing.Text(SvgDrawing::kLeft - 8, kHistogram.bottom + 5, "end", "0");
}

/// Dots at tenths of a pixel; equal ones once, which keeps long measurements small.
std::string dots_of(const ClockFigures& figures, Series series, double shown, double micros) {
    std::string data;
    std::pair<long, long> last{-1, -1};
    for (const MeasuredTick& tick : figures.ticks) {
        const double x = SvgDrawing::kLeft + static_cast<double>(tick.due) / micros *
                                                 (SvgDrawing::kRight - SvgDrawing::kLeft);
        const double y = kTimeLine.At(decades(static_cast<double>(tick.*series)) / shown);
        const std::pair<long, long> place{std::lround(x * 2), std::lround(y * 2)};
        if (place == last) continue;
        last = place;
        fmt::format_to(std::back_inserter(data), "M{:.1f} {:.1f}h0", x, y);
    }
    return data;
}

void draw_time_line(SvgDrawing& drawing, const ClockFigures& figures, double shown) {
    const double micros =
        figures.ticks.empty() ? 1 : std::max(1.0, static_cast<double>(figures.ticks.back().due));
    drawing.Text(SvgDrawing::kLeft, kTimeLine.top - 14, "start", "Lateness over time");
    for (int decade = 0; decade <= static_cast<int>(shown); ++decade) {
        const double y = kTimeLine.At(decade / shown);
        drawing.Line(SvgDrawing::kLeft, y, SvgDrawing::kRight, y, SvgDrawing::kGrid);
        drawing.Text(SvgDrawing::kLeft - 8, y + 4, "end", text_of_micros(std::pow(10.0, decade)));
    }
    drawing.SecondsBelow(kTimeLine.bottom, micros / 1e6);
    drawing.Dots(dots_of(figures, &MeasuredTick::receivedLate, shown, micros), kReceivedColour);
    drawing.Dots(dots_of(figures, &MeasuredTick::producedLate, shown, micros), kProducedColour);
    drawing.Line(SvgDrawing::kLeft, kTimeLine.bottom, SvgDrawing::kRight, kTimeLine.bottom,
                 SvgDrawing::kInk);
}

void draw_legend(SvgDrawing& drawing) {
    drawing.Text(SvgDrawing::kRight - 210, 30, "end", "● produced by the clock", 13,
                 kProducedColour);
    drawing.Text(SvgDrawing::kRight, 30, "end", "● received by its watcher", 13, kReceivedColour);
}

}  // namespace

std::string DrawClockFigures(const std::string& title, const ClockFigures& figures) {
    SvgDrawing drawing(title);
    const double shown = decades_shown(figures);
    draw_legend(drawing);
    draw_histogram(drawing, figures, shown);
    draw_time_line(drawing, figures, shown);
    return std::move(drawing).Finish();
}
