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
/// Times may be set anew while it waits. What a track has from before its times went back is of no
/// use to a start: it is dropped. How long something waited is counted from piece to piece, and is
/// no difference of two times.
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
    /// The same when nothing more will come: pictures that waited for sound begin with what there
    /// is of it.
    bool DecideAtEnd();

    bool HasPictures() const { return fHasPictures; }
    bool HasSound() const { return fHasSound; }
    /// On the pictures' line, of sound alone on its own.
    double TimeMs() const { return fTimeMs; }
    /// The start in ticks of the pictures.
    long long Ticks() const;
    /// Time of a piece of sound on the line of TimeMs.
    double OnLine(double soundMs) const { return soundMs + fSoundShiftMs; }
    const std::deque<MediaItem>& Pictures() const { return fPictures.Items(); }
    const std::deque<MediaItem>& Sound() const { return fSounds.Items(); }

    /// Takes what waited out, in the order of time; false at the end.
    bool Next(MediaItem& item);

private:
    /// What waits of one track.
    class Waiting {
    public:
        const std::deque<MediaItem>& Items() const { return fItems; }
        bool IsEmpty() const { return fItems.empty(); }
        const MediaItem& Front() const { return fItems.front(); }
        const MediaItem& Back() const { return fItems.back(); }
        std::size_t Bytes() const { return fBytes; }
        /// From the first piece to the last one, step by step.
        double Ms() const { return fMs; }

        void Add(MediaItem item);
        /// The front one. There is one.
        MediaItem Take();
        /// Whether a piece goes back to times from before what waits.
        bool IsSetBackBy(const MediaItem& item) const;

    private:
        std::deque<MediaItem> fItems;
        std::size_t fBytes = 0;
        double fMs = 0;
    };

    void drop_until_key();
    void keep_bound();
    bool decide_alone();
    bool decide_together();
    void compare_lines();
    bool begin_at(double timeMs);

    bool fHasPictures;
    bool fHasSound;
    const std::size_t fMostBytes;
    Waiting fPictures;
    Waiting fSounds;
    double fDroppedMs = 0;  // that pictures had waited which had to go
    double fTimeMs = 0;
    long long fTicks = 0;
    double fSoundShiftMs = 0;
};
