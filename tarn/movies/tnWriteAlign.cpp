#include "tarn/movies/tnWriteAlign.h"

#include <cmath>

namespace {

constexpr double kSlack = 1.0;

}  // namespace

bool tnWriteAlign::CanOutputVideoFrame(double time) {
    if (fStreamCount < 2) return true;
    if (fFirstAudioTime < 0 || time < fFirstAudioTime) return false;
    if (fFirstVideoTime < 0) return false;
    return time >= fFirstVideoTime;
}

bool tnWriteAlign::CanOutputAudioFrame(double time) {
    if (fStreamCount < 2) return true;
    if (fFirstAudioTime < 0) fFirstAudioTime = time;
    if (fFirstVideoTime < 0) return false;
    if (fFirstVideoTime > time) return fClosestAudioGap + kSlack >= fFirstVideoTime - time;
    return time >= fFirstVideoTime;
}

void tnWriteAlign::FindClosestAudioFrame(double time) {
    const double distance = std::fabs(time - fFirstVideoTime);
    if (fClosestAudioGap > distance) fClosestAudioGap = distance;
}

bool tnWriteAlign::ShouldRequestVideoKeyframe(double time) {
    if (fStreamCount < 2 || fKeyframeRequested) return false;
    if (fFirstAudioTime < 0 || time < fFirstAudioTime) return false;
    fKeyframeRequested = true;
    fFirstVideoTime = time;
    return true;
}
