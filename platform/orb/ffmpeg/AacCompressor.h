#pragma once

#include <memory>

#include "orb/CAudioCompressor.h"
#include "orb/ffmpeg/AudioBlocks.h"
#include "orb/ffmpeg/PcmFormat.h"

namespace Quillon::Orb {

/// 'caac': AAC-LC by libavcodec, from PCM of one to six or eight channels.
///
/// Packets of 1024 frames come out as 'mp4a', the last one as short as what went in leaves it.
/// Their times begin at 0 with the priming frames that the output properties tell, and run on
/// without gap. Of floating PCM a sample that is no finite number becomes silence, and one beyond
/// 16 is 16. What fails all the same is silence in its place, so that what comes behind keeps
/// its time. Properties: AudioCompressor::BitRate, and
/// CoreAudioCompressor::RateControlMethod, where 0 and 1 keep the bit rate and 3 keeps a quality
/// that gives about that rate; 2 is refused.
class AacCompressor : public CAudioCompressor {
public:
    static constexpr unsigned int kCode = 'caac';

    AacCompressor();
    ~AacCompressor() override;

    CValueList<unsigned int>* GetInputFormats() override { return PcmFormat::ListCodes(); }
    CValueList<unsigned int>* GetOutputFormats() override;
    /// ResultNullPointer without input properties; ResultNotSupported, with a trace line, for a
    /// format that is not listed, seven channels or more than eight, or a rate that AAC does not
    /// have.
    Result Begin() override;
    /// Drains the encoder: the packets that were left are ready afterwards.
    Result End() override;
    /// ResultError before Begin and after the end of the stream, ResultNullPointer for a sample
    /// without data. Null ends the stream.
    Result PutSample(int pin, CMediaSample* sample) override;
    Result GetSample(int pin, RObject<CMediaSample>& sample) override;

protected:
    Result AcceptProperty(const PropertyName& name, const PropertyValue& value) override;

private:
    struct Encoder;

    Result open(Encoder& encoder, const CAudioProperties& input);
    Result describe_output(const Encoder& encoder, const CAudioProperties& input);
    Result fill_missing();
    Result fill(const unsigned char* data, long long frames);
    Result take_apart(const unsigned char* data, int count);
    Result encode_frame();
    Result receive_packets();
    Result drain();

    std::unique_ptr<Encoder> fEncoder;  // null outside Begin and the end of the stream
    AudioReadyQueue fReady;
};

/// Adds 'caac' to the inventory of audio compressors.
void RegisterAacCompressor();

}  // namespace Quillon::Orb
