#pragma once

#include <cstddef>
#include <deque>
#include <limits>

#include "addons/support/MediaItem.h"

/// Finds where a movie starts: at its first key frame that has sound beside it.
///
/// Pictures from before that are dropped: nothing could decode them, or nothing would be heard with
/// them. Sound is kept from a little earlier, since decoders need a run-up; who writes it cuts what
/// is too much. Frame times and sound positions of a source count from one origin. Where they lie
/// so far apart that they cannot, the times on the host's line decide, which are a few blocks
/// coarser.
///
/// What waits is bounded. Raw pictures of ten seconds would be gigabytes: the oldest ones, which
/// nothing is heard with, are dropped for newer ones.
///
/// One thread.
class MovieStart {
public:
    /// How long pictures wait for sound, and sound for pictures, before the movie goes without.
    static constexpr double kPatienceMs = 10000;
    /// Sound that is kept from before the start.
    static constexpr double kRunUpMs = 100;

    /// `mostBytes` of pictures wait at most.
    MovieStart(bool hasPictures, bool hasSound,
               std::size_t mostBytes = std::numeric_limits<std::size_t>::max())
        : fHasPictures(hasPictures), fHasSound(hasSound), fMostBytes(mostBytes) {}

    void Add(MediaItem item);
    /// True once, when the start is known: then the rest of this class answers.
    bool Decide();
    /// The same when nothing more will come: pictures that waited for sound begin without it.
    bool DecideAtEnd();

    bool HasPictures() const { return fHasPictures; }
    bool HasSound() const { return fHasSound; }
    /// On the pictures' line, of sound alone on its own.
    double TimeMs() const { return fTimeMs; }
    /// The start in ticks of the pictures.
    long long Ticks() const;
    /// Time of a piece of sound on the line of TimeMs.
    double OnLine(double soundMs) const { return soundMs + fSoundShiftMs; }
    const std::deque<MediaItem>& Pictures() const { return fPictures; }
    const std::deque<MediaItem>& Sound() const { return fSounds; }

    /// Takes what waited out, in the order of time; false at the end.
    bool Next(MediaItem& item);

private:
    void drop_picture();
    void drop_until_key();
    void keep_bound();
    bool decide_alone();
    bool decide_together();
    void compare_lines();
    bool begin_at(double timeMs);

    bool fHasPictures;
    bool fHasSound;
    const std::size_t fMostBytes;
    std::deque<MediaItem> fPictures;
    std::deque<MediaItem> fSounds;
    std::size_t fPictureBytes = 0;
    double fDroppedMs = 0;  // that pictures had waited which had to go
    double fTimeMs = 0;
    long long fTicks = 0;
    double fSoundShiftMs = 0;
};
