#pragma once

#include "tarn/export.h"
#include "tarn/foundation/tnMediaRecord.h"

/// Brings PCM into another sample size, sample rate or number of channels.
///
/// Ask NeedsConversion first, and only then Factory for a converter; Init it once with the two
/// formats and pass each block through Convert. One thread at a time; no lock. Formats are valid by
/// contract: sample size, channels and rates above 0.
class TARN_API tnAudioConverter {
public:
    tnAudioConverter() = default;
    tnAudioConverter(const tnAudioConverter&) = delete;
    tnAudioConverter& operator=(const tnAudioConverter&) = delete;
    virtual ~tnAudioConverter();

    /// A converter of the kind that is really used, over the media library. The caller deletes it.
    static tnAudioConverter* Factory();

    /// Whether sample size, channels or sample rate differ; nothing else counts.
    static bool NeedsConversion(const tnMediaRecord& a, const tnMediaRecord& b);

    /// 0; or -1 for a pair of formats that the converter cannot do. Once per converter.
    virtual int Init(const tnMediaRecord& input, const tnMediaRecord& output);

    /// What a converter would like to read beyond its block: none of ours does, both are 0.
    virtual unsigned int PreferredExtraInputBytes() const;
    virtual double PreferredExtraInputFrames() const;

    virtual void Reset();

    /// Converts the `inBytes` at `in` to `out`, which takes `outCapacity` bytes: 0 or -1.
    /// `mixBytes` is how much of `in` a converter takes that changes only the channels: `inBytes`
    /// or, for callers that size their blocks by what comes out, `outCapacity`. With either of them
    /// what is written fits; with more than both it goes past `out`, and nothing checks that. The
    /// larger of `inBytes` and `mixBytes` must be readable at `in`. `outFrames` and `outBytes`,
    /// what was made, may be null.
    ///
    /// This one changes the rate of 16-bit audio by taking the nearest earlier frame, and takes all
    /// that is not mono for stereo: -1 for other sample sizes, with `out` left alone. It fills
    /// `outCapacity` and reads as much of `in` as that needs; it looks at neither `inBytes` nor
    /// `mixBytes` and leaves `outFrames` alone.
    virtual int Convert(void* in, void* out, unsigned int inBytes, unsigned int mixBytes,
                        unsigned int outCapacity, unsigned int* outFrames, unsigned int* outBytes);

protected:
    tnMediaRecord fInputFormat;
    tnMediaRecord fOutputFormat;
};
