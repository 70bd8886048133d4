#pragma once

#include <optional>
#include <string>
#include <vector>

#include "SyncMeter.h"

constexpr double kShortestDriftSeconds = 30;

/// What the pairs of a clip say together, in milliseconds.
struct SyncFigures {
    double median = 0;
    double least = 0;
    double most = 0;
    /// How the offset grows; nothing when the pairs lie within less than half a minute, where the
    /// steps of the measurement would pass for a drift.
    std::optional<double> driftPerMinute;

    double Spread() const { return most - least; }
};

/// The middle one, or halfway between the two in the middle. At least one value.
double MedianOf(std::vector<double> values);

/// Of no pairs all zeros. `pairs` are in order of time. The drift is the median of the slopes
/// between pairs that are far apart, which single wrong ones do not bend.
SyncFigures FiguresOf(const std::vector<MeasuredPair>& pairs);

/// "+3.0 ms a minute", or why nobody knows.
std::string TextOfDrift(const SyncFigures& figures);
