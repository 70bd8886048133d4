#pragma once

#include <memory>
#include <vector>

#include "orb/CAudioCompressor.h"
#include "orb/RObject.h"
#include "tarn/filters/tnAudioCompressor.h"
#include "tarn/foundation/tnMediaRecord.h"

class tnAacAudioBuffer;
class tnAudioConverter;

/// AAC, two channels of it or as many as the output record says, at 'mtbr' ("target_bit_rate",
/// kilobits per second, 128 if unset). One thread.
///
/// Blocks may have any length. Sound that fills no packet yet waits for the next block, so that the
/// last packets of a run are not delivered.
class TARN_API tnAacAudioCompressor : public tnAudioCompressor {
public:
    tnAacAudioCompressor();
    ~tnAacAudioCompressor() override;

    const tnMediaRecord& InputFormat() const override;
    const tnMediaRecord& OutputFormat() const override;
    void SetOutputFormat(const tnMediaRecord& format) override;
    /// 0; or -1041 a format that cannot be described (16 or 32 bits per sample can), -1054 no
    /// conversion between the formats, -1055 no AAC encoder, -1056 it did not begin, -1057 it
    /// refused the bit rate.
    int Create(const tnMediaRecord& input, const tnMediaRecord& output) override;
    /// Encodes a block that begins at `timeMs`. 0 with null while no packet is full; -1 before a
    /// Create that succeeded, -1058 when the block gave no sound in the output's format (a change
    /// of rate holds the first ones back), -1059 when the encoder failed. A block that does not go
    /// on where the last one ended moves the times of the packets that follow.
    int EncodeFrame(EncodedBuffer** out, double timeMs, void* data, unsigned int count) override;
    int FramesPerPacket() const override;
    /// The AudioSpecificConfig: refers to the compressor's own bytes.
    int GetDecoderDescription(zBuffer& out) override;
    /// What Create gave, 0 before it; see tnOrbVideoCompressor::ConfigurationError.
    int ConfigurationError() const { return fCreateError; }

private:
    int prepare();
    int open_encoder();
    void read_output();
    void follow_time(double timeMs, unsigned int bytes);
    int convert(void*& data, unsigned int& bytes);
    int put(void* data, unsigned int bytes);
    int take_packets(EncodedBuffer** out);

    tnMediaRecord fInputFormat;
    tnMediaRecord fOutputFormat;
    std::unique_ptr<tnAudioConverter> fConverter;  // null when none is needed
    std::vector<unsigned char> fConverted;
    Quillon::Orb::RObject<Quillon::Orb::CAudioCompressor> fEncoder;  // null until Create succeeded
    std::vector<unsigned char> fDescription;
    int fFramesPerPacket = 0;
    int fPrimingFrames = 0;

    int fCreateError = 0;
    bool fStarted = false;
    double fNextMs = 0;    // when the next block is due
    double fOriginMs = 0;  // when the first frame of all would be heard, had no block been missing
};
