#pragma once

#include <limits>

/// `value` without its fraction; the nearest number that `Integer` holds where it does not fit, and
/// 0 for what is no number. Records may say anything: a plain conversion of what does not fit is
/// undefined.
template <typename Integer>
constexpr Integer WholeNumberOf(double value) {
    // Not above the largest as a double: of 64 bits that one is rounded up and does not fit.
    constexpr double kLeast = static_cast<double>(std::numeric_limits<Integer>::min());
    constexpr double kBeyond =
        static_cast<double>(std::numeric_limits<Integer>::max() / 2 + 1) * 2.0;
    if (value != value) return 0;
    if (value <= kLeast) return std::numeric_limits<Integer>::min();
    if (value >= kBeyond) return std::numeric_limits<Integer>::max();
    return static_cast<Integer>(value);
}
