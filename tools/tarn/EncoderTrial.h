#pragma once

#include <string>
#include <vector>

/// An encoder that hosts may offer.
struct EncoderKind {
    const char* name;        ///< as tracks name it: "x264"
    unsigned int component;  ///< code of the component behind it
    unsigned int output;     ///< the format that it is to make
    bool isAudio;
    bool onlyInHardware;  ///< its fallback to software does not count
};

/// All that this program knows of.
const std::vector<EncoderKind>& AllEncoderKinds();

struct EncoderAnswer {
    bool works = false;
    bool inHardware = false;
    std::string why;  ///< why it does not work; one line, no end
};

constexpr long long kEncoderTrialUs = 5'000'000;

/// Finds out whether the encoder works here, by encoding with it. Drivers may hang: a trial that
/// has not ended after `limitUs` is left behind on its own thread. One call at a time.
EncoderAnswer TryEncoder(const EncoderKind& kind, long long limitUs = kEncoderTrialUs);
