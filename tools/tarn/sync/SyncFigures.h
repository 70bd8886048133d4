#pragma once

#include <vector>

#include "SyncMeter.h"

/// What the pairs of a clip say together, in milliseconds.
struct SyncFigures {
    double median = 0;
    double least = 0;
    double most = 0;
    double driftPerMinute = 0;  ///< how the offset grows; 0 for less than two pairs

    double Spread() const { return most - least; }
};

/// The middle one, or halfway between the two in the middle. At least one value.
double MedianOf(std::vector<double> values);

/// Of no pairs all zeros. `pairs` are in order of time. The drift is the median of the slopes
/// between pairs that are far apart, which single wrong ones do not bend.
SyncFigures FiguresOf(const std::vector<MeasuredPair>& pairs);
