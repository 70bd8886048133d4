#pragma once

#include <algorithm>
#include <cmath>

#include "addons/support/PictureLine.h"

/// Follows the times of a track's sound and finds what is missing between two pieces.
///
/// Files lay sound end to end: a piece that never came would pull all that follows towards the
/// picture's past, and one that comes too often, or from a device that runs fast, push it towards
/// its future. So silence is put in, and taken out again where the gap was none; and sound is left
/// out. Whole-millisecond times and the jitter of hosts are neither.
class SoundLine {
public:
    static constexpr double kGapMs = 20.0;

    /// `startMs`: the movie's start on this line.
    void BeginAt(double startMs) { fOriginMs = startMs; }
    /// Whether a piece stands in the file. Later ones are never from before the movie's start,
    /// whatever their times say: then the device began to count anew.
    bool HasBegun() const { return fStarted; }
    MoviePlace Place() const { return {fEndMs - fOriginMs - fCutMs, fCutMs}; }

    /// Milliseconds that are missing before a piece that starts at `startMs`; 0 for none.
    double MissingBefore(double startMs, const MoviePlace* pictures) const {
        const double off = fStarted ? startMs - fEndMs : 0;
        if (off <= kGapMs) return 0;
        if (off < kLongestGapMs) return off;
        if (!pictures) return 0;
        if (pictures->IsNear(startMs - fOriginMs - fCutMs)) return off;
        const double beside = off + fCutMs - pictures->cutMs;
        return beside > 0 && pictures->IsNear(startMs - fOriginMs - pictures->cutMs) ? beside : 0;
    }
    /// Takes the piece for written, behind what `missingMs` said.
    void Follow(double startMs, double durationMs, double missingMs) {
        const double off = fStarted ? startMs - fEndMs : 0;
        // Within a gap's width the line runs on by durations, so that roundings do not add up.
        const bool runsOn = fStarted && std::fabs(off) <= kGapMs;
        if (fStarted && !runsOn) step(off, missingMs);
        fEndMs = (runsOn ? fEndMs : startMs) + durationMs;
        fStarted = true;
    }

    /// Whether a piece of so many milliseconds that was just followed is to be left out whole:
    /// there is as much sound too many. Silence that was put in is taken back piece by piece.
    bool TakesBackAll(double lastsMs) {
        const bool isTooMany = fExcessMs >= lastsMs;
        if (isTooMany) fExcessMs -= lastsMs;
        return isTooMany;
    }
    /// Milliseconds, `mostMs` at most, by which the sound that was just followed stands too late:
    /// its begin is to be left out for so long.
    double TakeBack(double mostMs) {
        const double silence = std::clamp(mostMs, 0.0, fSilenceMs);
        const double excess = std::clamp(mostMs - silence, 0.0, fExcessMs);
        fSilenceMs -= silence;
        fExcessMs -= excess;
        return silence + excess;
    }

private:
    void step(double off, double missingMs) {
        const bool isUneven = off < 0 && off >= -PictureLine::kLongestBackMs;
        if (!isUneven) fCutMs += off - missingMs;
        if (isUneven) push_forward(-off);
        if (missingMs > 0) {
            fFilledMs = std::min(fFilledMs + missingMs, PictureLine::kLongestBackMs);
        }
    }
    void push_forward(double lateMs) {
        const double wasNoGap = std::min(lateMs, fFilledMs);
        fFilledMs -= wasNoGap;
        fSilenceMs += wasNoGap;
        fExcessMs += lateMs - wasNoGap;
    }

    bool fStarted = false;
    double fOriginMs = 0;
    double fEndMs = 0;
    double fCutMs = 0;
    double fFilledMs = 0;   // of late, as silence
    double fSilenceMs = 0;  // of that, to be taken back
    double fExcessMs = 0;   // of sound, to be taken back
};
