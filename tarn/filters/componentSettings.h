#pragma once

#include "tarn/foundation/tnMediaRecord.h"

// Settings that several components take from an output record.

/// Bits per second; 0, for an encoder's own choice, where the record names none.
inline int BitRateOf(const tnMediaRecord& output) {
    constexpr long long kBitsPerKilobit = 1000;
    constexpr long long kMost = 2000000000;  // what components take
    const long long bits = output.AsInt32('mtbr', 0) * kBitsPerKilobit;
    // Below 0 stands what only tells one request from another.
    if (bits < 0) return 0;
    return static_cast<int>(bits < kMost ? bits : kMost);
}

/// The rate at which an encoder runs when each second shall stay under the record's bit rate. Its
/// buffer holds one second, so that a second may take twice its rate; a little is kept in hand.
inline int StrictBitRateOf(const tnMediaRecord& output) {
    constexpr double kRoom = 2.1;
    return static_cast<int>(BitRateOf(output) / kRoom);
}

inline bool IsStrictRate(const tnMediaRecord& output) {
    return output.AsBool("strict_cbr", false);
}
