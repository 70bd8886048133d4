#pragma once

/// Ticks of `from` as ticks of `to`: half of `to` is added, then the division truncates toward
/// zero.
///
/// Frame durations and frame times go through the same rounding, so that a frame's end meets the
/// next one's start. The half is added to negative values too. The product is taken in 128 bits: a
/// clock's ticks since the machine's start times a timescale does not fit 64.
constexpr long long ToFileTimescale(long long ticks, long long from, long long to) {
    return static_cast<long long>((static_cast<__int128>(ticks) * to + to / 2) / from);
}
