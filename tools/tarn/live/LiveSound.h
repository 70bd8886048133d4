#pragma once

#include <memory>
#include <string>

#include "tarn/foundation/tnMediaRecord.h"

#include "Show.h"

/// Sound is asked for in blocks of this length: what the PCM filter takes, and nothing else.
constexpr long long kSoundBlocksPerSecond = 30;

/// The sound of a source as 16-bit stereo PCM without an end: silence after a clip that is over.
/// One thread at a time.
class LiveSound {
public:
    /// Null with an empty `error` for a source without sound, with one line when it is broken.
    static std::unique_ptr<LiveSound> Open(const ShowSource& source, std::string& error);
    virtual ~LiveSound() = default;

    virtual const tnMediaRecord& Format() const = 0;
    /// Fills `frames` interleaved sample frames.
    virtual void Next(short* pcm, long long frames) = 0;
    /// A clip begins, or begins anew, `at` seconds after the sound's beginning: what is left of the
    /// round before is cut or drawn out with silence up to there. `start` is where the pictures
    /// begin on the clip's own time line.
    virtual void BeginRound(double at, double start) = 0;
};
