#pragma once

#include <cstddef>
#include <vector>

#include "tarn/sync/tnSyncDTMF.h"

/// A stretch of sound that may hold a tone, in frames from its beginning; `end` is behind it.
struct ToneSpan {
    long long begin = 0;
    long long end = 0;
};

/// Finds the DTMF tones that last, among the digits that the detector takes out of noise and speech
/// for a moment: some one in a hundred blocks. A tone is the same digit in six blocks or more that
/// come close to one another, some 70 ms of it.
class LastingTones {
public:
    explicit LastingTones(int sampleRate);

    /// Takes interleaved sound, of which the first channel counts.
    void Add(const short* pcm, long long frames, int channels);

    /// Spans of all tones so far, in order and apart. Each begins early enough to hold the whole
    /// tone.
    std::vector<ToneSpan> Spans() const;

private:
    /// What one digit is about.
    struct Run {
        ToneSpan span;
        int blocks = 0;
        std::size_t place = 0;  // in fSpans, from the sixth block on
    };

    void heard(int digit, long long end);

    const long long fBlock;  // frames
    tnSyncDTMF fDetector;
    long long fPosition = 0;
    Run fRuns[16];
    std::vector<ToneSpan> fSpans;
};
