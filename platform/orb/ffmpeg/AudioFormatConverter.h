#pragma once

#include "orb/CAudioConverter.h"
#include "orb/ffmpeg/AudioBlocks.h"
#include "orb/ffmpeg/PcmFormat.h"

struct SwrContext;

namespace Quillon::Orb {

/// 'afc ': changes the sample format and the byte order of PCM, and nothing else.
///
/// Each block comes out as one block at once; nothing is held back. Integers from floats are
/// rounded to the nearest and clipped, without dither, so that silence stays silence.
class AudioFormatConverter : public CAudioConverter {
public:
    static constexpr unsigned int kCode = 'afc ';

    AudioFormatConverter();
    ~AudioFormatConverter() override;

    CValueList<unsigned int>* GetInputFormats() override { return PcmFormat::ListCodes(); }
    CValueList<unsigned int>* GetOutputFormats() override { return PcmFormat::ListCodes(); }
    /// ResultNullPointer without input properties, ResultNotSupported for a format that is not
    /// listed or no channels.
    Result Begin() override;
    Result End() override;
    /// ResultError outside Begin and End, ResultNullPointer for a sample without data.
    Result PutSample(int pin, CMediaSample* sample) override;
    Result GetSample(int pin, RObject<CMediaSample>& sample) override;

private:
    Result convert(const unsigned char* from, unsigned char* to, std::size_t samples);

    const PcmFormat* fFrom = nullptr;  // null outside Begin and End
    const PcmFormat* fTo = nullptr;
    int fChannels = 0;
    SwrContext* fResampler = nullptr;  // null where the formats differ in nothing but byte order
    AudioReadyQueue fReady;
    long long fFrames = 0;  // that came out so far
};

/// Adds 'afc ' to the inventory of audio converters.
void RegisterAudioFormatConverter();

}  // namespace Quillon::Orb
