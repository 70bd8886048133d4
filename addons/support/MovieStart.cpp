#include "addons/support/MovieStart.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

/// Times of sound come from whole milliseconds.
constexpr double kRoundingMs = 1.0;
/// Two lines of one origin are never as far apart as this: it is more than any encoder holds back.
constexpr double kOtherOriginMs = 10000;
/// The longest that sound is kept for a picture to come, by far the longest group of pictures.
constexpr double kMostSoundMs = 60000;

}  // namespace

void MovieStart::Add(MediaItem item) {
    if (item.picture) fPictureBytes += item.bytes;
    (item.picture ? fPictures : fSounds).push_back(std::move(item));
}

void MovieStart::drop_picture() {
    fPictureBytes -= fPictures.front().bytes;
    fPictures.pop_front();
}

void MovieStart::drop_until_key() {
    while (!fPictures.empty() && !fPictures.front().isKey) drop_picture();
}

/// Room for newer pictures, from a later key frame on. They have waited as long as the older ones.
void MovieStart::keep_bound() {
    while (fPictureBytes > fMostBytes) {
        const auto isKey = [](const MediaItem& picture) { return picture.isKey; };
        if (std::none_of(fPictures.begin() + 1, fPictures.end(), isKey)) return;
        const double from = fPictures.front().startMs;
        drop_picture();
        drop_until_key();
        fDroppedMs += fPictures.front().startMs - from;
    }
}

bool MovieStart::Decide() {
    drop_until_key();
    keep_bound();
    return fHasPictures && fHasSound ? decide_together() : decide_alone();
}

bool MovieStart::DecideAtEnd() {
    if (Decide()) return true;
    if (!fHasPictures || !fHasSound || fPictures.empty()) return false;
    fHasSound = !fSounds.empty();
    return begin_at(fPictures.front().startMs);
}

bool MovieStart::decide_alone() {
    const std::deque<MediaItem>& only = fHasPictures ? fPictures : fSounds;
    return !only.empty() && begin_at(only.front().startMs);
}

bool MovieStart::decide_together() {
    if (fPictures.empty()) {
        while (!fSounds.empty() && fSounds.back().endMs - fSounds.front().endMs > kMostSoundMs) {
            fSounds.pop_front();
        }
        return false;
    }
    const double waitedMs = fPictures.back().startMs - fPictures.front().startMs + fDroppedMs;
    const bool waitedLong = waitedMs > kPatienceMs;
    if (fSounds.empty()) {
        if (!waitedLong) return false;
        fHasSound = false;
        return begin_at(fPictures.front().startMs);
    }
    compare_lines();
    const double soundFrom = OnLine(fSounds.front().startMs) - kRoundingMs;
    while (!fPictures.empty() &&
           (!fPictures.front().isKey || fPictures.front().startMs < soundFrom)) {
        drop_picture();
        fDroppedMs = 0;
    }
    if (fPictures.empty()) return false;
    const double time = fPictures.front().startMs;
    if (OnLine(fSounds.back().endMs) <= time && !waitedLong) return false;
    return begin_at(time);
}

void MovieStart::compare_lines() {
    const MediaItem& picture = fPictures.back();
    const MediaItem& sound = fSounds.back();
    fSoundShiftMs = 0;
    if (std::fabs(picture.startMs - sound.endMs) <= kOtherOriginMs) return;
    if (!picture.hasHostTime || !sound.hasHostTime) return;
    fSoundShiftMs = sound.hostShiftMs - picture.hostShiftMs;
}

bool MovieStart::begin_at(double timeMs) {
    fTimeMs = timeMs;
    if (!fPictures.empty()) {
        fTicks = fPictures.front().decodeTicks + fPictures.front().offsetTicks;
    }
    while (fSounds.size() > 1 && OnLine(fSounds.front().endMs) <= timeMs - kRunUpMs) {
        fSounds.pop_front();
    }
    return true;
}

long long MovieStart::Ticks() const {
    return fTicks;
}

bool MovieStart::Next(MediaItem& item) {
    if (fPictures.empty() && fSounds.empty()) return false;
    const bool soundFirst =
        fPictures.empty() ||
        (!fSounds.empty() && OnLine(fSounds.front().startMs) <= fPictures.front().startMs);
    std::deque<MediaItem>& from = soundFirst ? fSounds : fPictures;
    item = std::move(from.front());
    from.pop_front();
    return true;
}
