#include "addons/support/MovieStart.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "addons/support/PictureLine.h"

namespace {

/// Times of sound come from whole milliseconds.
constexpr double kRoundingMs = 1.0;
/// Two lines of one origin are never as far apart as this: it is more than any encoder holds back.
constexpr double kOtherOriginMs = 10000;
/// The longest that sound is kept for a picture to come, by far the longest group of pictures.
constexpr double kMostSoundMs = 60000;

/// What a piece adds to the wait, at least and at most: times that stand still must not make it
/// endless, and times that are set forward must not end it.
constexpr double kShortestStepMs = 1;
constexpr double kLongestStepMs = 1000;

/// Pictures are shown in another order than they come in.
double time_of(const MediaItem& item) {
    return item.picture ? item.decodeMs : item.startMs;
}

double step_ms(const MediaItem& from, const MediaItem& to) {
    return std::clamp(time_of(to) - time_of(from), kShortestStepMs, kLongestStepMs);
}

}  // namespace

void MovieStart::Waiting::Add(MediaItem item) {
    if (!fItems.empty()) fMs += step_ms(fItems.back(), item);
    fBytes += item.bytes;
    fItems.push_back(std::move(item));
}

MediaItem MovieStart::Waiting::Take() {
    MediaItem item = std::move(fItems.front());
    fItems.pop_front();
    fBytes -= item.bytes;
    fMs = fItems.empty() ? 0 : fMs - step_ms(item, fItems.front());
    return item;
}

bool MovieStart::Waiting::IsSetBackBy(const MediaItem& item) const {
    return !fItems.empty() && time_of(item) < time_of(fItems.back()) - PictureLine::kLongestBackMs;
}

void MovieStart::Add(MediaItem item) {
    Waiting& track = item.picture ? fPictures : fSounds;
    if (track.IsSetBackBy(item)) {
        if (item.picture) fDroppedMs += track.Ms();
        track = {};
    }
    track.Add(std::move(item));
}

void MovieStart::drop_until_key() {
    while (!fPictures.IsEmpty() && !fPictures.Front().isKey) fPictures.Take();
}

/// Room for newer pictures, from a later key frame on. They have waited as long as the older ones.
void MovieStart::keep_bound() {
    while (fSounds.Ms() > kMostSoundMs) fSounds.Take();
    while (fPictures.Bytes() > fMostBytes) {
        const auto isKey = [](const MediaItem& picture) { return picture.isKey; };
        const std::deque<MediaItem>& pictures = fPictures.Items();
        if (std::none_of(pictures.begin() + 1, pictures.end(), isKey)) return;
        const double before = fPictures.Ms();
        fPictures.Take();
        drop_until_key();
        fDroppedMs += before - fPictures.Ms();
    }
}

bool MovieStart::Decide() {
    drop_until_key();
    keep_bound();
    return fHasPictures && fHasSound ? decide_together() : decide_alone();
}

bool MovieStart::DecideAtEnd() {
    if (Decide()) return true;
    if (!fHasPictures || !fHasSound || fPictures.IsEmpty()) return false;
    fHasSound = !fSounds.IsEmpty();
    return begin_at(fPictures.Front().startMs);
}

bool MovieStart::decide_alone() {
    const Waiting& only = fHasPictures ? fPictures : fSounds;
    return !only.IsEmpty() && begin_at(only.Front().startMs);
}

bool MovieStart::decide_together() {
    if (fPictures.IsEmpty()) return false;
    const bool waitedLong = fPictures.Ms() + fDroppedMs > kPatienceMs;
    if (fSounds.IsEmpty()) {
        if (!waitedLong) return false;
        fHasSound = false;
        return begin_at(fPictures.Front().startMs);
    }
    compare_lines();
    const double soundFrom = OnLine(fSounds.Front().startMs) - kRoundingMs;
    while (!fPictures.IsEmpty() &&
           (!fPictures.Front().isKey || fPictures.Front().startMs < soundFrom)) {
        fPictures.Take();
        fDroppedMs = 0;
    }
    if (fPictures.IsEmpty()) return false;
    const double time = fPictures.Front().startMs;
    if (OnLine(fSounds.Back().endMs) <= time && !waitedLong) return false;
    return begin_at(time);
}

void MovieStart::compare_lines() {
    const MediaItem& picture = fPictures.Back();
    const MediaItem& sound = fSounds.Back();
    fSoundShiftMs = 0;
    if (std::fabs(picture.startMs - sound.endMs) <= kOtherOriginMs) return;
    if (!picture.hasHostTime || !sound.hasHostTime) return;
    fSoundShiftMs = sound.hostShiftMs - picture.hostShiftMs;
}

bool MovieStart::begin_at(double timeMs) {
    fTimeMs = timeMs;
    if (!fPictures.IsEmpty()) {
        fTicks = fPictures.Front().decodeTicks + fPictures.Front().offsetTicks;
    }
    while (fSounds.Items().size() > 1 && OnLine(fSounds.Front().endMs) <= timeMs - kRunUpMs) {
        fSounds.Take();
    }
    return true;
}

long long MovieStart::Ticks() const {
    return fTicks;
}

bool MovieStart::Next(MediaItem& item) {
    if (fPictures.IsEmpty() && fSounds.IsEmpty()) return false;
    const bool soundFirst =
        fPictures.IsEmpty() ||
        (!fSounds.IsEmpty() && OnLine(fSounds.Front().startMs) <= fPictures.Front().startMs);
    item = (soundFirst ? fSounds : fPictures).Take();
    return true;
}
