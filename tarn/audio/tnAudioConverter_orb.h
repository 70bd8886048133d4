#pragma once

#include "orb/CAudioFilter.h"
#include "orb/CAudioProperties.h"
#include "orb/CAudioSample.h"
#include "orb/RObject.h"
#include "orb/Result.h"
#include "tarn/audio/tnAudioConverter.h"

/// The converter that is really used: up to three stages, each there only where the formats differ.
///
/// Sample format ('afc ') and then sample rate ('asrc') are filters of the media library; last come
/// the channels, 16-bit alone, which are mixed here. The first stage reads the caller's own bytes:
/// nobody else may change or free `in` before Convert returns.
class TARN_API tnAudioConverter_orb : public tnAudioConverter {
public:
    tnAudioConverter_orb() = default;
    ~tnAudioConverter_orb() override;

    /// -1, with both records in the trace, for a sample size other than 16 and 32 bits where size
    /// or rate change, a stage that the media library does not make, a change of channels at other
    /// than 16 bits, and a widening of anything but mono.
    int Init(const tnMediaRecord& input, const tnMediaRecord& output) override;

    /// -1, with `out` all zeros, where a stage fails, gives nothing (a rate filter that still fills
    /// keeps the block for the next ones) or gives more than `outCapacity`, and for formats without
    /// channels or whole bytes a sample. A failure costs that one block.
    int Convert(void* in, void* out, unsigned int inBytes, unsigned int mixBytes,
                unsigned int outCapacity, unsigned int* outFrames, unsigned int* outBytes) override;

private:
    template <class T>
    using RObject = Quillon::Orb::RObject<T>;
    using Result = Quillon::Orb::Result;

    Result begin_format_stage(const tnMediaRecord& input, const tnMediaRecord& output,
                              tnMediaRecord& work);
    Result begin_rate_stage(const tnMediaRecord& input, const tnMediaRecord& output,
                            tnMediaRecord& work);
    Result choose_channel_stage(const tnMediaRecord& input, const tnMediaRecord& output);
    Result run_filters(void* in, unsigned int inBytes,
                       RObject<Quillon::Orb::CMediaSample>& converted);
    int deliver_filtered(const Quillon::Orb::CMediaSample* converted, void* out,
                         unsigned int outCapacity, unsigned int* outFrames, unsigned int* outBytes);
    int deliver_mixed(void* in, void* out, unsigned int inBytes, unsigned int mixBytes,
                      unsigned int outCapacity, unsigned int* outFrames, unsigned int* outBytes);
    void report_length(unsigned int length, unsigned int* outFrames, unsigned int* outBytes) const;
    /// What every count here is divided by is not 0.
    bool formats_have_frames() const;
    unsigned int out_frame_bytes() const;
    int mixdown_channels(unsigned int inChannels, unsigned int outChannels, const void* in,
                         unsigned int inBytes, void* out, unsigned int outCapacity, int bits);

    RObject<Quillon::Orb::CAudioFilter> fRateConverter;    // or null
    RObject<Quillon::Orb::CAudioFilter> fFormatConverter;  // or null
    RObject<Quillon::Orb::CAudioProperties> fFormatInputProperties;
    RObject<Quillon::Orb::CAudioProperties> fRateInputProperties;
    bool fMixChannels = false;  // the channel stage runs behind the filters
};
