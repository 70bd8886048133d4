#include "TrackIndex.h"

#include <limits>

#include "SampleDescription.h"

namespace Quillon::Orb {

TrackIndex::TrackIndex(const MovieTrack& description, bool trimAudio)
    : fDescription(description),
      fPlain(IsPlainSound(description.format)),
      fTrimAudio(trimAudio),
      fTables(fPlain ? static_cast<unsigned int>(description.bytesPerPacket) : 0),
      fClock(description.timescale, description.frameDuration) {}

long long TrackIndex::NominalDuration(const StoredSample& sample) const {
    if (IsVideo()) return fClock.Duration(sample.duration);
    const long long frames = sample.packets * fDescription.framesPerPacket;
    const long long whole = Rescale(frames, fDescription.timescale, fDescription.sampleRate);
    return fPlain || sample.duration <= 0 ? whole : sample.duration;
}

bool TrackIndex::Count(const StoredSample& sample) {
    // Plain sound is numbered frame by frame: 24 hours at 48 kHz, 6 at 192.
    constexpr long long kMost = std::numeric_limits<unsigned int>::max();
    if (sample.packets > kMost - fCounted) return false;
    fCounted += sample.packets;
    return true;
}

void TrackIndex::Add(const StoredSample& sample) {
    if (IsVideo()) {
        fTables.AddSample(sample.size, fClock.Next(sample.time), NominalDuration(sample),
                          sample.offset, sample.key);
        return;
    }
    if (fTables.SampleCount() == 0) fFirstSound = sample.time;
    if (fPlain) {
        fTables.AddPackets(sample.packets, fDescription.timescale / fDescription.sampleRate);
        return;
    }
    const long long duration = NominalDuration(sample);
    fTables.AddSample(sample.size, fSoundTime, duration, 0, true);
    fSoundTime += duration;
}

TrackEdit TrackIndex::Edit() const {
    if (IsVideo()) return PictureEdit(fTables, fClock.First());
    // A start before 0 is what is not heard; without one the encoder's delay is.
    long long trim = 0;
    if (fTrimAudio) {
        trim = fFirstSound < 0 ? -fFirstSound
                               : Rescale(fDescription.primingFrames, fDescription.timescale,
                                         fDescription.sampleRate);
    }
    return SoundEdit(fTables, fFirstSound, trim);
}

double TrackIndex::Seconds() const {
    const TrackEdit edit = Edit();
    return static_cast<double>(edit.emptyTicks + edit.mediaTicks) /
           static_cast<double>(fDescription.timescale);
}

}  // namespace Quillon::Orb
