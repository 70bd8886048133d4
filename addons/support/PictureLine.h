#pragma once

#include <cmath>

/// What is longer may be another origin, and no gap.
constexpr double kLongestGapMs = 600000.0;

/// Where a track stands in the movie.
struct MoviePlace {
    /// Tracks of one movie are never further apart: it is more than any encoder holds back.
    static constexpr double kNearMs = 10000.0;

    double endMs = 0;
    double cutMs = 0;  ///< taken out of its line so far, where that jumped to another origin

    bool IsNear(double ms) const { return std::fabs(ms - endMs) <= kNearMs; }
};

/// Follows the times of a movie's pictures and takes out jumps to another origin.
///
/// A long step is a pause where the sound beside the pictures made it too. Where the sound did not,
/// the host's clock was set, or the host slept: the movie then goes on where it was, and the track
/// that jumps last is put beside the one that jumped first.
class PictureLine {
public:
    /// Steps back that are shorter are those of a host that counts unevenly: the line stays.
    static constexpr double kLongestBackMs = 1000.0;

    /// `startMs`: the movie's start on this line.
    void BeginAt(double startMs) { fOriginMs = startMs; }
    MoviePlace Place() const { return {fLastMs + fStepMs, fCutMs}; }

    /// Milliseconds to be taken from the time of a picture that is decoded at `decodeMs`; without
    /// `sound` there is nothing that a pause could be told by, and each long step is one. Durations
    /// are not asked: an encoder tells a jump as that of the picture before it.
    double Follow(double decodeMs, const MoviePlace* sound) {
        const double time = decodeMs - fOriginMs;
        const double step = time - fCutMs - fLastMs;
        if (fStarted && is_jump(step, sound)) {
            fCutMs = cut_for(time, sound);
        } else {
            fStepMs = fStarted ? std::fmax(step, 0) : 0;
        }
        fLastMs = time - fCutMs;
        fStarted = true;
        return fCutMs;
    }

private:
    bool is_jump(double step, const MoviePlace* sound) const {
        if (step < -kLongestBackMs) return true;
        return sound && step > kLongestGapMs && !sound->IsNear(fLastMs + step);
    }
    double cut_for(double time, const MoviePlace* sound) const {
        const bool isBeside = sound && sound->IsNear(time - sound->cutMs) &&
                              time - sound->cutMs >= fLastMs - kLongestBackMs;
        return isBeside ? sound->cutMs : time - fLastMs - fStepMs;
    }

    bool fStarted = false;
    double fOriginMs = 0;
    double fLastMs = 0;  // the picture before, in the movie
    double fStepMs = 0;
    double fCutMs = 0;
};
