#pragma once

#include <cstdlib>

namespace tests {

/// How far apart the steps of a long sweep on one thread are taken, "every byte" or "every call".
/// Sanitizers make such a sweep several times longer, and what they would find shows at any of its
/// steps: there it takes every third one, every seventh under the thread sanitizer, which has least
/// to find in it, and all of them with TARN_SOAK_ROUNDS set, as `script/soak movies` does for the
/// movie sweeps. Every other build takes all.
inline int SweepStride() {
#if defined(__SANITIZE_THREAD__)
    const int stride = 7;
#elif defined(__SANITIZE_ADDRESS__)
    const int stride = 3;
#else
    const int stride = 1;
#endif
    return std::getenv("TARN_SOAK_ROUNDS") ? 1 : stride;
}

}  // namespace tests
