#pragma once

#include <string>

#include "orb/CAssetAudioWriter.h"
#include "orb/CAssetVideoWriter.h"
#include "orb/CAssetWriter.h"
#include "orb/RObject.h"
#include "tarn/foundation/tnMediaRecord.h"

#include "SegmentFile.h"

/// The movie file that a cut is written to: packets of segments, as they are.
class CutWriter {
public:
    /// How long it is going to be at most, before Open: what room its index gets.
    void Announce(double seconds) { fSeconds = seconds; }

    /// `start` is the movie's beginning in ticks of the pictures, `primed` how many frames of the
    /// first packets of sound lie before it. `video` and `audio` are the recording's formats. False
    /// with one line in `error`.
    bool Open(const std::string& path, const SegmentFormat& pictures, const tnMediaRecord& video,
              const SegmentFormat& sound, const tnMediaRecord& audio, long long start, int primed,
              std::string& error);
    /// `shift` is taken from its times.
    bool WritePicture(const SegmentPacket& packet, long long shift, std::string& error);
    /// Runs on from what was written; `skip` bytes of PCM are left out.
    bool WriteSound(const SegmentPacket& packet, int skip, std::string& error);
    /// Completes the file.
    bool Finish(std::string& error);

private:
    bool add_pictures(const SegmentFormat& track, const tnMediaRecord& format);
    bool add_sound(const SegmentFormat& track, const tnMediaRecord& format, int primed);
    void announce(Quillon::Orb::CMediaProperties& properties) const;
    bool failed(const Quillon::Orb::Result& result, std::string& error) const;

    template <typename T>
    using RObject = Quillon::Orb::RObject<T>;

    std::string fPath;
    RObject<Quillon::Orb::CAssetWriter> fAsset;
    RObject<Quillon::Orb::CAssetVideoWriter> fPictures;
    RObject<Quillon::Orb::CAssetAudioWriter> fSound;
    double fSeconds = 0;
    long long fStart = 0;
    int fFramesPerPacket = 1;
    int fFrameBytes = 0;
};
