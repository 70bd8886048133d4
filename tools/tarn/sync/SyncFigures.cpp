#include "SyncFigures.h"

#include <algorithm>
#include <cstddef>
#include <fmt/format.h>
#include <utility>

namespace {

constexpr double kSecondsPerMinute = 60;
constexpr std::size_t kMostPairs = 1000;  // for slopes between all of them

std::optional<double> drift_of(const std::vector<MeasuredPair>& pairs) {
    const double span = pairs.back().seconds - pairs.front().seconds;
    if (span < kShortestDriftSeconds) return std::nullopt;
    // Close pairs tell the measurement's own steps and not the drift: half the clip lies between
    // those that count. Of very many pairs, every n-th.
    const std::size_t step = pairs.size() / kMostPairs + 1;
    std::vector<double> slopes{(pairs.back().offsetMs - pairs.front().offsetMs) / span};
    for (std::size_t i = 0; i < pairs.size(); i += step) {
        for (std::size_t j = i + step; j < pairs.size(); j += step) {
            const double seconds = pairs[j].seconds - pairs[i].seconds;
            if (seconds < span / 2) continue;
            slopes.push_back((pairs[j].offsetMs - pairs[i].offsetMs) / seconds);
        }
    }
    return MedianOf(std::move(slopes)) * kSecondsPerMinute;
}

}  // namespace

double MedianOf(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    if (values.size() % 2 == 1) return *middle;
    return (*middle + *std::max_element(values.begin(), middle)) / 2;
}

SyncFigures FiguresOf(const std::vector<MeasuredPair>& pairs) {
    SyncFigures figures;
    if (pairs.empty()) return figures;
    std::vector<double> offsets;
    for (const MeasuredPair& pair : pairs) offsets.push_back(pair.offsetMs);
    const auto [least, most] = std::minmax_element(offsets.begin(), offsets.end());
    figures.least = *least;
    figures.most = *most;
    figures.median = MedianOf(offsets);
    figures.driftPerMinute = drift_of(pairs);
    return figures;
}

std::string TextOfDrift(const SyncFigures& figures) {
    if (figures.driftPerMinute) return fmt::format("{:+.1f} ms a minute", *figures.driftPerMinute);
    return fmt::format("unknown from less than {:g} s", kShortestDriftSeconds);
}
