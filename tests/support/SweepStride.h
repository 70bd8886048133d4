#pragma once

#include <cstdlib>

namespace tests {

/// How far apart the steps of a long sweep on one thread are taken, "every byte" or "every call".
/// The thread sanitizer makes such a sweep ten times longer and has little to find in it: there it
/// takes every seventh step, and all of them with TARN_SOAK_ROUNDS set, as `script/soak movies`
/// does for the movie sweeps. Every other build takes all.
inline int SweepStride() {
#if defined(__SANITIZE_THREAD__)
    return std::getenv("TARN_SOAK_ROUNDS") ? 1 : 7;
#else
    return 1;
#endif
}

}  // namespace tests
