#pragma once

#include <memory>
#include <string>

#include "tarn/foundation/tnMediaRecord.h"

#include "Show.h"

class tnStreamBuffer;

/// The pictures of a source, one a tick of it, in order. One thread at a time.
class LivePictures {
public:
    /// Null with one line in `error`.
    static std::unique_ptr<LivePictures> Open(const ShowSource& source, std::string& error);
    virtual ~LivePictures() = default;

    /// Complete: with timescale, frame duration and rate, and the pitch at which Next lays rows.
    virtual const tnMediaRecord& Format() const = 0;
    /// Puts the next tick's picture into `buffer`, which is as large as Format() says; null passes
    /// over it. False at the end.
    virtual bool Next(tnStreamBuffer* buffer) = 0;
    /// The tick with which a clip begins, or is about to begin anew: told before the block of sound
    /// that reaches over it is due. Ticks count from 0.
    virtual long long RoundStart() const = 0;
    /// Where the first picture stands on the clip's own time line, in seconds; after one Next.
    virtual double StartSeconds() const { return 0; }
};

/// The frame's number, as generated pictures carry it along their lower edge: sixteen squares, the
/// highest bit first, black for 0 and white for 1.
constexpr int kFrameNumberBits = 16;
