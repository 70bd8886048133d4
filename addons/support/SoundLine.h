#pragma once

/// Follows the times of a track's sound and finds what is missing between two pieces.
///
/// Files lay sound end to end, so that a piece that never came would pull all that follows towards
/// the picture's past. Whole-millisecond times and the jitter of hosts are no gaps; nor is sound
/// that comes again, which nothing can be done about.
class SoundLine {
public:
    static constexpr double kGapMs = 20.0;
    /// What is longer is another origin, and no gap.
    static constexpr double kLongestMs = 600000.0;

    /// Whether a piece stands in the file. Later ones are never from before the movie's start,
    /// whatever their times say: then the device began to count anew.
    bool HasBegun() const { return fStarted; }
    /// Milliseconds that are missing before a piece that starts at `startMs`; 0 for none.
    double MissingBefore(double startMs) const {
        const double off = fStarted ? startMs - fEndMs : 0;
        return off > kGapMs && off < kLongestMs ? off : 0;
    }
    void Follow(double startMs, double durationMs) {
        // Within a gap's width the line runs on by durations, so that roundings do not add up.
        const double off = fStarted ? startMs - fEndMs : 0;
        const bool runsOn = fStarted && off <= kGapMs && off >= -kGapMs;
        fEndMs = (runsOn ? fEndMs : startMs) + durationMs;
        fStarted = true;
    }

private:
    bool fStarted = false;
    double fEndMs = 0;
};
