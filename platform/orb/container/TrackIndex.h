#pragma once

#include "MovieFile.h"
#include "SampleTables.h"
#include "TrackTimes.h"

namespace Quillon::Orb {

/// A sample whose bytes stand in the file, or are about to.
struct StoredSample {
    unsigned int size = 0;  ///< 0 for a block of plain sound
    int offset = 0;
    bool key = true;
    long long time = 0;      ///< decode time, as given
    long long duration = 0;  ///< ticks, as given
    long long packets = 1;
};

/// One track of the index: what it is and what is in it.
class TrackIndex {
public:
    TrackIndex(const MovieTrack& description, bool trimAudio);

    const MovieTrack& Description() const { return fDescription; }
    const SampleTables& Tables() const { return fTables; }
    bool IsVideo() const { return fDescription.kind == MovieTrack::Kind::Video; }
    bool IsPlain() const { return fPlain; }

    /// Counts a sample that is about to be written; false, and nothing counted, when the tables of
    /// a file cannot number any more.
    bool Count(const StoredSample& sample);
    void BeginChunk(long long position) { fTables.BeginChunk(position); }
    void Add(const StoredSample& sample);

    /// Where the track stands in the movie.
    TrackEdit Edit() const;
    /// Seconds of the movie up to the track's end.
    double Seconds() const;
    /// Ticks that a sample takes when nothing follows it.
    long long NominalDuration(const StoredSample& sample) const;

private:
    const MovieTrack fDescription;
    const bool fPlain;
    const bool fTrimAudio;
    SampleTables fTables;
    PictureClock fClock;
    long long fFirstSound = 0;  // decode time of the first sample of sound
    long long fSoundTime = 0;   // media time of the next one
    long long fCounted = 0;
};

}  // namespace Quillon::Orb
