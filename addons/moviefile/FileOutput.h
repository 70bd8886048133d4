#pragma once

#include "tarn/writers/tnWriteORB2.h"

#include "addons/moviefile/FailureRow.h"
#include "addons/support/MovieOutput.h"
#include "addons/support/PictureLine.h"
#include "addons/support/SoundLine.h"

/// Writes raw frames and PCM through the movie file writer, which encodes them for this file alone.
///
/// Encoders and disks may be slower than the host for a while: a write then waits for them, within
/// an allowance, and then leaves out what has no room.
class FileOutput final : public MovieOutput {
public:
    /// The tracks as the file shall carry them; an empty record for none.
    FileOutput(unsigned int containerType, Settings settings, const tnMediaRecord& pictures,
               const tnMediaRecord& sound);
    ~FileOutput() override;

    /// 0, or -1006.
    int Open() override;
    long long BytesWritten(bool ofPictures) const override;

protected:
    // The codes of tnWriteORB2.
    int begin_file(const MovieStart& start) override;
    int write_picture(const MediaItem& item) override;
    int write_sound(const MediaItem& item) override;
    int finish_file() override;
    bool takes_picture(tnVideoCompressor::EncodedBuffer& buffer) override;
    bool takes_sound(tnAudioCompressor::EncodedBuffer& buffer) override;

private:
    long long frames_in(double milliseconds) const;
    int write_pieces(const unsigned char* data, long long frames, long long frameBytes);
    int write_block(const unsigned char* data, long long frames, long long frameBytes);
    bool bear(FailureRow& row, int code);
    int bear_unconverted(long long frames);
    int write_silence(long long frameBytes);
    void count_pictures();
    void count_sound();

    const unsigned int fContainerType;
    const tnMediaRecord fPictures;
    const tnMediaRecord fSound;
    tnWriteORB2* const fWriter;
    std::atomic<long long> fPictureBytes{0};
    std::atomic<long long> fSoundBytes{0};
    long long fStartTicks = 0;
    double fTicksPerMs = 1;
    double fSoundStartMs = 0;
    double fSoundRate = 0;
    long long fMissingFrames = 0;  // of sound, before the next piece
    double fUnconverted = 0;       // frames in a row of which the file got nothing
    bool fToldOfUnconverted = false;
    FailureRow fLostPictures;
    FailureRow fLostSound;
    PictureLine fPictureLine;
    SoundLine fSoundLine;
};
