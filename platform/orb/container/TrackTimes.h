#pragma once

#include "SampleTables.h"

namespace Quillon::Orb {

/// Value times numerator by denominator, rounded to nearest, halves up, exact in between. All
/// positive.
long long Rescale(long long value, long long numerator, long long denominator);

/// The part of the movie's time line that a track takes: nothing for a while, then its media from
/// some media time on.
struct TrackEdit {
    long long emptyTicks = 0;  ///< ticks of the track
    long long mediaTime = 0;
    long long mediaTicks = 0;
    bool needed = false;  ///< the plain reading, all media from 0 on, would be wrong
};

/// Turns the decode times of pictures into media times: from 0, never back, steps that fit the
/// file. A pause of up to a day that is longer than a step goes in as several.
class PictureClock {
public:
    PictureClock(long long timescale, long long frameDuration)
        : fTimescale(timescale), fFrameDuration(frameDuration) {}

    /// The media time of the next sample.
    long long Next(long long decodeTime);
    /// What the sample that Next saw last is taken to last until the next one comes.
    long long Duration(long long given) const { return fits(given) ? given : fFrameDuration; }
    /// Decode time of the first sample.
    long long First() const { return fFirst; }

private:
    bool fits(long long duration) const;

    const long long fTimescale;
    const long long fFrameDuration;
    bool fStarted = false;
    long long fFirst = 0;
    long long fShift = 0;  // media time less decode time
    long long fLast = 0;
};

/// Where the media of `tables` stands in the movie when its first sample's decode time is `first`.
TrackEdit PictureEdit(const SampleTables& tables, long long first);
/// The same for sound, of which the first `trim` ticks are not heard.
TrackEdit SoundEdit(const SampleTables& tables, long long first, long long trim);

}  // namespace Quillon::Orb
