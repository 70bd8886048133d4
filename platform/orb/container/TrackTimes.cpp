#include "TrackTimes.h"

#include <algorithm>
#include <limits>

namespace Quillon::Orb {
namespace {

// Readers take a step between two samples for a signed number of 32 bits.
constexpr long long kLongestStep = std::numeric_limits<int>::max();
// What lies further ahead is no pause but another time line.
constexpr long long kLongestPauseSeconds = 24 * 60 * 60;

}  // namespace

long long Rescale(long long value, long long numerator, long long denominator) {
    const auto product = static_cast<__int128>(value) * numerator + denominator / 2;
    return static_cast<long long>(product / denominator);
}

bool PictureClock::fits(long long duration) const {
    return duration > 0 && duration <= kLongestStep;
}

long long PictureClock::Next(long long decodeTime) {
    if (!fStarted) {
        fStarted = true;
        fFirst = decodeTime;
        fShift = -decodeTime;
        return 0;
    }
    long long time = decodeTime + fShift;
    if (fLast - time > fTimescale) {
        // A time line that began anew: the film goes on, and from here on keeps the new distance.
        time = fLast + fFrameDuration;
        fShift = time - decodeTime;
    } else if (time < fLast) {
        // A small step back: no picture can be shown for less than no time. The time line stays,
        // so that picture and sound are together again as soon as the times have caught up.
        time = fLast;
    } else if (time - fLast > kLongestStep) {
        // The time line stays: the next picture makes up for what is left of a pause, and only in
        // the pause itself a picture is seen too early.
        const bool isPause = time - fLast <= kLongestPauseSeconds * fTimescale;
        time = fLast + kLongestStep;
        if (!isPause) fShift = time - decodeTime;
    }
    fLast = time;
    return time;
}

TrackEdit PictureEdit(const SampleTables& tables, long long first) {
    TrackEdit edit;
    if (tables.SampleCount() == 0) return edit;
    // The media starts where its first picture is displayed; first + display is its time in the
    // movie. What would be shown before the movie's 0 is cut.
    const long long start = tables.FirstDisplay() + first;
    edit.emptyTicks = std::max(start, 0LL);
    edit.mediaTime = std::max(start >= 0 ? tables.FirstDisplay() : -first, 0LL);
    edit.mediaTicks = std::max(tables.LastDisplay() - edit.mediaTime, 0LL);
    edit.needed = edit.emptyTicks > 0 || edit.mediaTime > 0;
    return edit;
}

TrackEdit SoundEdit(const SampleTables& tables, long long first, long long trim) {
    TrackEdit edit;
    if (tables.SampleCount() == 0) return edit;
    edit.emptyTicks = std::max(first, 0LL);
    edit.mediaTime = trim;
    edit.mediaTicks = std::max(tables.Duration() - trim, 0LL);
    edit.needed = edit.emptyTicks > 0 || edit.mediaTime > 0;
    return edit;
}

}  // namespace Quillon::Orb
