#pragma once

#include "orb/BlockPool.h"
#include "orb/CAudioConverter.h"
#include "orb/ffmpeg/AudioBlocks.h"
#include "orb/ffmpeg/PcmFormat.h"

struct soxr;

namespace Quillon::Orb {

/// 'asrc': changes the sample rate of PCM, and on the way its format where another is asked for.
///
/// The filter looks ahead, some 20 ms at the usual rates, and works in transforms of its own
/// length, so that what it gives for one block is nothing, or much. Callers take a sample for each
/// block that they put: this component keeps back, measured at Begin, what levels that out. Once
/// that much has gone in, every block gives its own length at the new rate, to within one frame;
/// the first blocks before give an empty handle. The first frame that comes out stands for the
/// first that went in; nothing is lost between blocks. A null sample or End drains: what was kept
/// back is then ready.
class AudioRateConverter : public CAudioConverter {
public:
    static constexpr unsigned int kCode = 'asrc';

    AudioRateConverter();
    ~AudioRateConverter() override;

    CValueList<unsigned int>* GetInputFormats() override;
    CValueList<unsigned int>* GetOutputFormats() override;
    /// ResultNullPointer without input properties, ResultNotSupported for a format that is not
    /// listed, no channels, no rate, or rates of which one is more than 1024 times the other. Takes
    /// some milliseconds at usual rates; the longer, up to half a second, the more frames come out
    /// for one that goes in.
    Result Begin() override;
    Result End() override;
    /// ResultError before Begin and after the end of the stream, ResultNullPointer for a sample
    /// without data.
    Result PutSample(int pin, CMediaSample* sample) override;
    Result GetSample(int pin, RObject<CMediaSample>& sample) override;

    /// Frames of the output rate that the component keeps back, from Begin on.
    int GetHeldBackFrames() const { return fHeldBack; }

private:
    Result process(const unsigned char* from, int frames);
    Result drain();
    Result release(CByteArray& bytes, int frames, int released);
    int due_frames(int available) const;
    void close();

    // fixed by Begin
    const PcmFormat* fFrom = nullptr;
    const PcmFormat* fTo = nullptr;
    int fChannels = 0;
    int fInputRate = 0;
    int fOutputRate = 0;
    int fHeldBack = 0;  // frames of the output rate

    soxr* fResampler = nullptr;  // null outside Begin and the end of the stream
    long long fFramesIn = 0;
    long long fFramesOut = 0;
    Block fKept;          // frames that the filter gave before they are due
    int fKeptFrames = 0;  // in fKept
    AudioReadyQueue fReady;
};

/// Adds 'asrc' to the inventory of audio converters.
void RegisterAudioRateConverter();

}  // namespace Quillon::Orb
