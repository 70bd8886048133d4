#pragma once

#include <utility>

#include "tarn/export.h"

/// Sizes of PCM blocks, from an audio format's four-character code.
///
/// A code that is not in the table counts as 16-bit samples, so that a size is never 0 because of
/// it. Channels above 0 are the caller's duty: the two *FromLength operations divide by them.
/// Everything is 32-bit arithmetic that wraps.
class TARN_API tnAudioFormat {
public:
    /// Bits that one sample takes in memory: 32 also for 24-bit samples, which have a byte to
    /// spare.
    static int BitsPerSample(int format);

    static unsigned int BytesPerSecond(int format, unsigned char channels, unsigned int sampleRate);

    /// `samples` counts sample frames.
    static unsigned int BytesForSamples(int format, unsigned char channels, unsigned int samples);

    /// Whole sample frames in `length` bytes. `sampleRate` is not used.
    static unsigned int SamplesFromLength(unsigned int length, int format, unsigned char channels,
                                          unsigned int sampleRate);

    /// The timescale (the sample rate) and the duration of `length` bytes in it.
    static std::pair<long long, long long> DurationFromLength(unsigned int length, int format,
                                                              unsigned char channels,
                                                              unsigned int sampleRate);
};
