#pragma once

// How far recordings go, whichever command or file asks for them.

/// A picture's sides, in pixels; the library's encoders take none that is longer.
constexpr int kSmallestSide = 2;
constexpr int kLargestSide = 16384;

constexpr double kLongestSeconds = 1e7;
constexpr int kMostKilobits = 2'000'000;      // a second
constexpr int kLongestKeyInterval = 100'000;  // frames
constexpr int kLongestMoovRate = 3600;        // seconds
