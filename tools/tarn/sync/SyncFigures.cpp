#include "SyncFigures.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace {

constexpr double kSecondsPerMinute = 60;
constexpr std::size_t kMostPairs = 1000;  // for slopes between all of them

double drift_of(const std::vector<MeasuredPair>& pairs) {
    // Close pairs tell the measurement's own steps and not the drift: half the clip lies between
    // those that count. Of very many pairs, every so-manieth.
    const double least = (pairs.back().seconds - pairs.front().seconds) / 2;
    const std::size_t step = pairs.size() / kMostPairs + 1;
    std::vector<double> slopes;
    for (std::size_t i = 0; i < pairs.size(); i += step) {
        for (std::size_t j = i + step; j < pairs.size(); j += step) {
            const double seconds = pairs[j].seconds - pairs[i].seconds;
            if (seconds > 0 && seconds >= least)
                slopes.push_back((pairs[j].offsetMs - pairs[i].offsetMs) / seconds);
        }
    }
    return slopes.empty() ? 0 : MedianOf(std::move(slopes)) * kSecondsPerMinute;
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
