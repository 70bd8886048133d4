#pragma once

#include <cstddef>

#include "orb/CAssetAudioWriter.h"
#include "orb/CAssetVideoWriter.h"
#include "orb/CAssetWriter.h"
#include "orb/CMemoryDataReference.h"
#include "orb/RObject.h"

#include "addons/support/MovieOutput.h"
#include "addons/support/PictureLine.h"
#include "addons/support/SoundLine.h"

/// Muxes what shared encoders made, as it comes: no picture and no packet is encoded, copied or
/// rendered here, and its times and key flags are those that the encoder gave.
class MuxOutput : public MovieOutput {
public:
    MuxOutput(unsigned int containerType, Settings settings);
    ~MuxOutput() override;

    /// 0; -1006 nothing can be written there.
    int Open() override;
    long long BytesWritten(bool ofPictures) const override;

protected:
    /// -1006 the file did not begin; -1032 it takes no such pictures; -1041 the encoder said too
    /// little of them; -1055 no such sound.
    int begin_file(const MovieStart& start) override;
    /// -1052 the file took the picture no more.
    int write_picture(const MediaItem& item) override;
    /// -1059 the file took the sound no more.
    int write_sound(const MediaItem& item) override;
    /// -1006 the file did not begin, or cannot be completed.
    int finish_file() override;
    bool takes_picture(tnVideoCompressor::EncodedBuffer& buffer) override;

private:
    template <typename T>
    using RObject = Quillon::Orb::RObject<T>;

    int make_picture_track(const TrackFormat& format);
    int make_sound_track(const MovieStart& start);
    int make_aac_track(const MovieStart& start);
    int add_sound_track(Quillon::Orb::CAudioProperties& properties);
    bool is_streamable(unsigned int format) const;
    void announce_length(Quillon::Orb::CMediaProperties* properties) const;
    double missing_before(double soundMs) const;
    int write_packet(const std::shared_ptr<tnAudioCompressor::EncodedBuffer>& buffer, int packet);
    int write_held_packet(double missingMs);
    std::size_t pcm_bytes(double milliseconds) const;
    int write_pcm(const MediaItem& item);
    int write_silence(double milliseconds);
    int write_bytes(RObject<Quillon::Orb::CMemoryDataReference> bytes, long long packets,
                    long long frames);

    const unsigned int fContainerType;
    RObject<Quillon::Orb::CAssetWriter> fAsset;
    RObject<Quillon::Orb::CAssetVideoWriter> fPictures;
    RObject<Quillon::Orb::CAssetAudioWriter> fSound;
    // for BytesWritten: the tracks, from when they stand
    std::atomic<Quillon::Orb::CAssetVideoWriter*> fPictureBytes{nullptr};
    std::atomic<Quillon::Orb::CAssetAudioWriter*> fSoundBytes{nullptr};

    bool fHasFile = false;
    long long fStartTicks = 0;
    double fTicksPerMs = 1;
    double fFirstSoundMs = 0;  // on the sound's line; what comes before is not written
    double fSoundStartMs = 0;  // the movie's start on the sound's line
    bool fIsPcm = false;
    std::size_t fFrameBytes = 0;  // of PCM
    double fSoundRate = 0;
    PictureLine fPictureLine;
    SoundLine fSoundLine;
    // A packet of AAC waits for the next one, whose time tells how long it stands.
    std::shared_ptr<tnAudioCompressor::EncodedBuffer> fHeld;
    int fHeldPacket = 0;
};
