#include "SyncPlot.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <iterator>

#include "../SvgDrawing.h"

namespace {

constexpr double kHeight = 460;
constexpr SvgPanel kPanel = {90, 400};
constexpr const char* kPairColour = "#2a7f62";
constexpr const char* kMedianColour = "#c2571a";
constexpr double kNarrowestMs = 20;  // of the scale of offsets

/// The scale of offsets: whole steps below and above all of them.
struct Scale {
    double low, high, step;

    double At(double ms) const { return kPanel.At((ms - low) / (high - low)); }
};

Scale scale_of(const SyncFigures& figures) {
    const double middle = (figures.least + figures.most) / 2;
    const double half = std::max(figures.Spread() * 0.6, kNarrowestMs / 2);
    const double step = RoundStep(2 * half);
    return {std::floor((middle - half) / step) * step, std::ceil((middle + half) / step) * step,
            step};
}

double x_of(double seconds, double whole) {
    return SvgDrawing::kLeft + seconds / whole * (SvgDrawing::kRight - SvgDrawing::kLeft);
}

void draw_scale(SvgDrawing& drawing, const Scale& scale) {
    const int marks = static_cast<int>(std::lround((scale.high - scale.low) / scale.step));
    for (int mark = 0; mark <= marks; ++mark) {
        const double ms = scale.low + mark * scale.step;
        const double y = scale.At(ms);
        drawing.Line(SvgDrawing::kLeft, y, SvgDrawing::kRight, y, SvgDrawing::kGrid);
        // Adding nothing makes a zero out of a negative one.
        drawing.Text(SvgDrawing::kLeft - 8, y + 4, "end", fmt::format("{:g} ms", ms + 0.0));
    }
    if (scale.low < 0 && scale.high > 0) {
        drawing.Line(SvgDrawing::kLeft, scale.At(0), SvgDrawing::kRight, scale.At(0),
                     SvgDrawing::kInk);
    }
}

/// The line on which the offsets lie as far as they drift evenly, held within the panel.
void draw_drift(SvgDrawing& drawing, const SyncMeasurement& measurement, const SyncFigures& figures,
                const Scale& scale, double whole) {
    const auto& pairs = measurement.pairs;
    if (pairs.empty()) return;
    const double slope = figures.driftPerMinute.value_or(0) / 60;
    const double middle = (pairs.front().seconds + pairs.back().seconds) / 2;
    const auto at = [&](double seconds) {
        const double ms = figures.median + slope * (seconds - middle);
        return scale.At(std::clamp(ms, scale.low, scale.high));
    };
    const double from = pairs.front().seconds;
    const double to = pairs.back().seconds;
    drawing.Line(x_of(from, whole), at(from), x_of(to, whole), at(to), kMedianColour);
}

}  // namespace

std::string DrawSyncFigures(const std::string& title, const SyncMeasurement& measurement,
                            const SyncFigures& figures) {
    SvgDrawing drawing(title, kHeight);
    const double whole = std::max(measurement.seconds, 1e-3);
    const Scale scale = scale_of(figures);
    drawing.Text(SvgDrawing::kLeft, kPanel.top - 34, "start",
                 "From the tone to the flash: above 0 the picture comes later");
    drawing.Text(SvgDrawing::kLeft, kPanel.top - 14, "start",
                 fmt::format("median {:+.1f} ms, spread {:.1f} ms, drift {}", figures.median,
                             figures.Spread(), TextOfDrift(figures)),
                 13, kMedianColour);
    draw_scale(drawing, scale);
    drawing.SecondsBelow(kPanel.bottom, whole);
    drawing.Line(SvgDrawing::kLeft, kPanel.bottom, SvgDrawing::kRight, kPanel.bottom,
                 SvgDrawing::kInk);
    draw_drift(drawing, measurement, figures, scale, whole);
    std::string dots;
    for (const MeasuredPair& pair : measurement.pairs) {
        fmt::format_to(std::back_inserter(dots), "M{:.1f} {:.1f}h0", x_of(pair.seconds, whole),
                       scale.At(pair.offsetMs));
    }
    drawing.Dots(dots, kPairColour, 6);
    return std::move(drawing).Finish();
}
