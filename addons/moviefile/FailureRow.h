#pragma once

#include <algorithm>

/// Tells single failures of a track, which leave a hole, from a row of them, which is its end.
///
/// Encoders tell of a failure with a later write, so that one that fails at each picture is told of
/// at every second one: a failure weighs as much as several successes.
class FailureRow {
public:
    void Succeed() {
        fWeight = std::max(fWeight - 1, 0);
        fLast = 0;
    }
    /// Whether one more with that code may be borne.
    bool Bear(int code) {
        fWeight += kFailureWeight;
        fLast = code;
        return fWeight <= kMostInARow * kFailureWeight;
    }
    bool HasBegun() const { return fWeight > 0; }
    /// The code of the last write, 0 if that was none.
    int Last() const { return fLast; }

private:
    static constexpr int kFailureWeight = 3;
    static constexpr int kMostInARow = 30;

    int fWeight = 0;
    int fLast = 0;
};
