#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tarn/foundation/tnMediaRecord.h"

/// The sound of any clip that FFmpeg reads, as 16-bit PCM with one or two channels.
///
/// One thread at a time. Holes in the clip's time line come as silence of any length, so that the
/// n-th frame of the stream belongs to n divided by the rate; a hole of more than a day is damage,
/// left out and told by Problem. Where the clip's clock begins again, the sound goes on behind what
/// came before. Sound that changes its rate or its channels underway is brought to those that it
/// began with.
class ClipAudio {
public:
    /// Opens the best sound track; null with one line in `error` when it cannot be decoded, null
    /// with an empty line when the clip has no sound.
    static std::unique_ptr<ClipAudio> Open(const std::string& path, std::string& error);
    virtual ~ClipAudio() = default;

    /// Type, sample format, rate, channels, bits, busses.
    virtual const tnMediaRecord& Format() const = 0;
    virtual int SampleRate() const = 0;
    virtual int Channels() const = 0;
    /// Length as the clip's header gives it, 0 when it does not say.
    virtual double HeaderSeconds() const { return 0; }
    /// Puts frame 0 at `seconds` of the clip's own time line, which else is the clip's start;
    /// before the first Next.
    virtual void StartAt(double seconds) = 0;
    /// Decodes some interleaved frames into `pcm`, replacing what it held; false at the end.
    virtual bool Next(std::vector<short>& pcm) = 0;
    /// After the end: what is wrong with it, as "ends at 1.0 of 8.0 seconds"; empty when nothing
    /// is.
    virtual std::string Problem() const { return {}; }
    /// After the end: whether there may be more, which was not waited for, since the program was
    /// asked to stop.
    virtual bool GaveUp() const { return false; }
};
