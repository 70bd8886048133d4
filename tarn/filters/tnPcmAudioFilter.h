#pragma once

#include <vector>

#include "tarn/filters/tnAudioCompressor.h"
#include "tarn/foundation/tnMediaRecord.h"

class tnAudioConverter;
class tnPcmAudioFilterBuffer;

/// Hands PCM on as it is, a packet for each block, where others encode: outputs of plain sound are
/// then fed as all others are. One thread.
///
/// It takes 16-bit stereo in blocks of a thirtieth of a second and nothing else. Hosts whose
/// pictures last longer or shorter than that write sound in a count of its own.
class TARN_API tnPcmAudioFilter : public tnAudioCompressor {
public:
    tnPcmAudioFilter();
    ~tnPcmAudioFilter() override;

    const tnMediaRecord& InputFormat() const override;
    const tnMediaRecord& OutputFormat() const override;
    void SetOutputFormat(const tnMediaRecord& format) override;
    /// 0, or what the converter says that the formats need.
    int Create(const tnMediaRecord& input, const tnMediaRecord& output) override;
    /// Copies the block of `bytes` into a buffer at `timeMs`; the caller releases it. Without a
    /// converter -1 for any other length than four bytes a frame. With one, -1 for a block that
    /// converted; see the source.
    int EncodeFrame(EncodedBuffer** out, double timeMs, void* data, unsigned int bytes) override;
    int FramesPerPacket() const override;
    /// -1054 where Create found no conversion between the formats, else 0; see
    /// tnOrbVideoCompressor::ConfigurationError.
    int ConfigurationError() const { return fCreateError; }

private:
    int copy_block(tnPcmAudioFilterBuffer& buffer, const void* data, unsigned int bytes) const;
    int convert_block(tnPcmAudioFilterBuffer& buffer, void* data, unsigned int bytes);
    void* padded(const void* data, unsigned int bytes, unsigned int capacity);

    tnAudioConverter* fConverter = nullptr;  // owned; null when no conversion is needed
    tnMediaRecord fInputFormat;
    tnMediaRecord fOutputFormat;
    long long fTotalSamples = 0;  // sample frames given out
    int fCreateError = 0;
    std::vector<unsigned char> fPadded;  // a block shorter than what the converter may read
};
