#pragma once

#include "tarn/foundation/tnMediaRecord.h"

/// PCM as the tests of its conversions describe it.
inline tnMediaRecord pcm(int bits, int rate, int channels) {
    tnMediaRecord record(TN_MEDIA_AUDIO);
    record.fBitsPerSample.SetInt32(bits);
    record.fSampleRate.SetInt32(rate);
    record.fChannels.SetInt32(channels);
    return record;
}
