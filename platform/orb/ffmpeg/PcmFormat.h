#pragma once

#include <cstddef>

#include "orb/CValueList.h"

namespace Quillon::Orb {

/// How the samples of a PCM format stand in memory.
struct PcmFormat {
    enum class Kind { Unsigned8, Int16, Int32, Float32, Float64 };

    unsigned int code;
    Kind kind;
    int bytes;     ///< of one sample
    bool swapped;  ///< its bytes stand in the other order than this machine's

    /// Null for a code that the audio components do not convert.
    static const PcmFormat* Find(unsigned int code);
    /// The codes of all, best known first. The caller's.
    static CValueList<unsigned int>* ListCodes();

    int Bits() const { return 8 * bytes; }
};

/// Reverses the bytes of each of `count` samples of `sampleBytes` (1, 2, 4 or 8). `from` and `to`
/// are the same or do not overlap.
void SwapSampleBytes(const unsigned char* from, unsigned char* to, std::size_t count,
                     int sampleBytes);

}  // namespace Quillon::Orb
