#pragma once

#include <memory>
#include <vector>

#include "../parseRate.h"

class ClipAudio;
class ClipVideo;

/// What a clip for measuring is to be.
struct SignalOptions {
    Rate rate{60, 1};
    int width = 1280;  ///< even; both sides large enough for the flash and the metronome's box
    int height = 720;
    double seconds = 20;
    std::vector<double> offsetsMs{0};  ///< pairs take them in turns; not empty
};

/// A flash and its tone.
struct SignalPair {
    long long frame = 0;      ///< the first one of the flash
    double flashSeconds = 0;  ///< when it shows
    double toneSeconds = 0;   ///< when the tone begins: earlier by the offset
};

constexpr int kSmallestSignalSide = 160;
constexpr double kLargestSignalOffsetMs = 450;
constexpr double kShortestSignalSeconds = 2;

/// The pairs of the clip, one every other second, in order.
std::vector<SignalPair> SignalPairs(const SignalOptions& options);

/// The clip's pictures: a green flash in the middle at each pair, and the metronome's box in the
/// corner.
std::unique_ptr<ClipVideo> MakeSignalPictures(const SignalOptions& options);

/// The clip's sound, without an end: a DTMF digit at each pair on the left, the metronome's tone on
/// the right.
std::unique_ptr<ClipAudio> MakeSignalSound(const SignalOptions& options);
