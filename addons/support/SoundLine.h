#pragma once

#include <algorithm>
#include <cmath>

#include "addons/support/PictureLine.h"

/// Follows the times of a track's sound and finds what is missing between two pieces.
///
/// Files lay sound end to end, so that a piece that never came would pull all that follows towards
/// the picture's past. Whole-millisecond times and the jitter of hosts are no gaps; nor is sound
/// that comes again, which nothing can be done about, unless a gap was told that was none: what was
/// put in for it is taken out again.
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

    /// Milliseconds, `mostMs` at most, of which the sound that was just followed is too late: its
    /// begin is to be left out for so long.
    double TakeBack(double mostMs) {
        const double taken = std::clamp(mostMs, 0.0, fOwedMs);
        fOwedMs -= taken;
        return taken;
    }

private:
    void step(double off, double missingMs) {
        const bool isUneven = off < 0 && off >= -PictureLine::kLongestBackMs;
        const double back = isUneven ? std::min(-off, fFilledMs) : 0;
        fFilledMs -= back;
        fOwedMs += back;
        if (missingMs > 0) {
            fFilledMs = std::min(fFilledMs + missingMs, PictureLine::kLongestBackMs);
        }
        fCutMs += off - missingMs + back;
    }

    bool fStarted = false;
    double fOriginMs = 0;
    double fEndMs = 0;
    double fCutMs = 0;
    double fFilledMs = 0;  // of late, as silence
    double fOwedMs = 0;    // to be taken back
};
