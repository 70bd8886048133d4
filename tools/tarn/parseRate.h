#pragma once

#include <string>

/// Frames or ticks a second, as a fraction; 0/1 for a rate that nobody gave.
struct Rate {
    long long numerator = 0;
    long long denominator = 1;

    double PerSecond() const {
        return static_cast<double>(numerator) / static_cast<double>(denominator);
    }
};

/// A clock ends at its next tick: whoever stops one waits for ten seconds at most.
constexpr double kSlowestRate = 0.1;
constexpr double kFastestFrameRate = 1000;

/// "25", "29.97" (which is 30000/1001) or "60000/1001"; false for what is no rate from kSlowestRate
/// up to `fastest`.
bool ParseRate(const std::string& text, Rate& rate, double fastest = kFastestFrameRate);
