#pragma once

#include <algorithm>

/// How long writes may wait for an output that does not keep up.
///
/// A host that writes at its pictures' pace serves other outputs too, so all waiting together must
/// stay short until the output has caught up. A host that is ahead of its own pictures, since it
/// converts or plays fast, may wait until it no longer is: that makes nobody late.
///
/// Times are microseconds of one clock. Guarded by its owner.
class WaitAllowance {
public:
    /// That writes may make a host late by, all together.
    static constexpr long long kMostUs = 500'000;

    /// The output has caught up: the host is taken to be in time now.
    void Restore(long long nowUs) {
        fInTimeUntilUs = nowUs;
        fLeftUs = kMostUs;
    }
    /// The host has written that much of its pictures.
    void Advance(double milliseconds) {
        constexpr double kUsPerMs = 1000;
        fInTimeUntilUs += static_cast<long long>(std::max(milliseconds, 0.0) * kUsPerMs);
    }
    /// How long a write may wait from now on; 0 for not at all.
    long long From(long long nowUs) const {
        return std::max(fInTimeUntilUs - nowUs, 0LL) + fLeftUs;
    }
    /// A write has waited that long.
    void Spend(long long fromUs, long long toUs) {
        const long long lateUs = toUs - std::max(fromUs, fInTimeUntilUs);
        fLeftUs = std::clamp(fLeftUs - std::max(lateUs, 0LL), 0LL, kMostUs);
    }

private:
    long long fInTimeUntilUs = 0;
    long long fLeftUs = kMostUs;
};
