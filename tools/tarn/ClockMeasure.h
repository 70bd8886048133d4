#pragma once

#include <functional>
#include <vector>

#include "tarn/clocks/tnClock.h"

struct ClockOptions {
    double rate = 60;
    double seconds = 10;
    tnClock::clock_rate_accuracy accuracy = tnClock::clock_rate_scac;
    /// Every core is kept busy meanwhile.
    bool load = false;
};

/// One tick as a watcher received it. Times in microseconds.
struct MeasuredTick {
    long long number;
    /// When the tick was due, from the first one on.
    long long due;
    /// How long after that the clock produced it, and the watcher's thread received it.
    long long producedLate;
    long long receivedLate;
};

struct ClockFigures {
    std::vector<MeasuredTick> ticks;
    /// Ticks that the clock produced and the watcher never saw.
    long long lost = 0;
    /// Differences of the intervals between ticks received one after the other from the period.
    std::vector<long long> intervalErrors;
};

/// Ticks for as long as the options say, or until `stop` says so, which is also told how far it is
/// (0 to 1). The first two ticks, which come at the start, are not counted. Throws
/// std::system_error when there is no thread to be had.
ClockFigures MeasureClock(const ClockOptions& options, const std::function<bool(double)>& stop);

/// The value that `share` of all values stand below, 0 when there are none; `values` in order.
long long PercentileOf(const std::vector<long long>& values, double share);
