#pragma once

namespace tests {

/// Of a long sweep that one thread makes, "every byte" or "every call", the share of steps to take.
/// The thread sanitizer makes such a sweep ten times longer and has nothing to find in it; every
/// other build takes all of them.
#if defined(__SANITIZE_THREAD__)
inline constexpr int kSweepStride = 7;
#else
inline constexpr int kSweepStride = 1;
#endif

}  // namespace tests
