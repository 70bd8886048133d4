#pragma once

#include "orb/CValueList.h"
#include "orb/RObject.h"

/// Finds out whether the platform's hardware encoder works, by encoding one frame with it.
///
/// No instances. Any thread; several may probe at once.
class tnEncoderProbe {
public:
    /// A driver that has not answered after so long counts as one that does not work.
    static constexpr long long kLimitMicroseconds = 3'000'000;

    tnEncoderProbe() = delete;

    /// Runs the trial on a thread of its own and waits for its outcome, at most `limit`
    /// microseconds.
    ///
    /// A trial that hangs is left behind with a trace line, and as long as it hangs no other is
    /// started: the answer is false at once, so that a sick driver costs the host one thread.
    static bool Run(long long limit = kLimitMicroseconds);

    /// The trial itself, on the calling thread. True when a frame went into an encoder that runs in
    /// hardware; every step that fails gives false.
    static bool Try();
};

/// Whether `value` is in the list; false without a list.
bool Contains(const Quillon::Orb::RObject<Quillon::Orb::CValueList<unsigned int>>& list,
              unsigned int value);
