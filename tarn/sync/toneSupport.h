#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "tarn/sync/tnSyncDTMF.h"

// Sound for the tests of the detectors: 16-bit, interleaved, two channels.

namespace tones {

using Stereo = std::vector<std::int16_t>;

/// What the detector hears best: the column a little below the row, both well below full scale.
constexpr double kPeak = 3276;
constexpr double kColumnOverRow = 0.8;

/// A digit in the left channel, the right one silent. `peak` is that of the sum, `columnOverRow` of
/// amplitudes.
inline Stereo Digit(char digit, int rate, int frames, double peak = kPeak,
                    double columnOverRow = kColumnOverRow) {
    const char* digits = tnSyncDTMF::kAsciiDTMF;
    const auto place = std::find(digits, digits + 16, digit) - digits;
    const double row = tnSyncDTMF::kFreqDTMF[place / 4];
    const double column = tnSyncDTMF::kFreqDTMF[4 + place % 4];
    Stereo sound(static_cast<std::size_t>(frames) * 2, 0);
    for (int i = 0; i < frames; ++i) {
        const double turn = 2 * M_PI * i / rate;
        const double sum = std::sin(row * turn) + columnOverRow * std::sin(column * turn);
        sound[static_cast<std::size_t>(i) * 2] =
            static_cast<std::int16_t>(std::lrint(peak / (1 + columnOverRow) * sum));
    }
    return sound;
}

inline Stereo Silence(int frames) {
    return Stereo(static_cast<std::size_t>(frames) * 2, 0);
}

inline Stereo& operator+=(Stereo& sound, const Stereo& more) {
    sound.insert(sound.end(), more.begin(), more.end());
    return sound;
}

}  // namespace tones
