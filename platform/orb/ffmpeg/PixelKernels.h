#pragma once

#include <cstdint>

namespace Quillon::Orb {

using PixelByte = std::uint8_t;
using PixelWord = std::uint16_t;

// The numbers that a conversion is told once: fixed-point forms of a ColourTransform, made in
// PixelFixedPoint.cpp so that grey stays grey and white stays white.
//
// "Wide" is the form in between: a 16-bit word that holds an 8-bit code times 128 (a 10-bit code
// times 32), with room to interpolate without rounding to a code.

/// wide -> code: ((wide * gain >> 15) + add) >> (6, or 4 for 10 bits), clamped to the codes.
struct PixelMap {
    std::int16_t gain;
    std::int16_t add;
};

/// wide Y, U, V -> luma of another matrix; scaled and clamped like PixelMap.
struct PixelLumaMatrix {
    std::int16_t y, u, v, add;
};

/// wide U, V -> chroma of another matrix; scaled and clamped like PixelMap.
struct PixelChromaMatrix {
    std::int16_t uu, uv, vu, vv, addU, addV;
};

/// wide Y, U, V -> B, G, R: (sum + add) >> 5, clamped.
struct PixelToRgb {
    std::int16_t y, ub, ug, vg, vr, addB, addG, addR;
};

/// B, G, R -> Y, U, V: (sum + add) >> 15, or >> 13 for 10 bits; chroma of 4:2:2 and 4:2:0 is summed
/// over neighbours with weights of 16 in all, hence >> 19 or >> 17 there.
struct PixelFromRgb {
    std::int16_t yb, yg, yr, ub, ug, ur, vb, vg, vr;
    std::int32_t addY, addU, addV;  ///< for a single pixel
    std::int32_t addPairU, addPairV;
};

/// Two rows that are mixed: weights in eighths that sum to 8.
struct PixelMix {
    int near;
    int far;
};

/// One implementation of all row operations.
///
/// `n` counts pixels of a row (or samples, where a row has one component); no row may be touched
/// beyond its last pixel, but for "wide" rows, which have kWidePadding readable words behind the
/// last sample, the first of which repeats it. Rows never overlap. Half-width rows have (n + 1) / 2
/// samples. Every implementation gives the same bits as the plain one.
struct PixelKernels {
    const char* name;

    // red, green, blue
    void (*rv24ToBgra)(const PixelByte* from, PixelByte* to, int n);
    void (*rv16ToBgra)(const PixelByte* from, PixelByte* to, int n);
    void (*rgb2ToBgra)(const PixelByte* from, PixelByte* to, int n);
    void (*greyToBgra)(const PixelByte* from, PixelByte* to, int n);
    void (*bgraToRv24)(const PixelByte* from, PixelByte* to, int n);
    void (*bgraToRv16)(const PixelByte* from, PixelByte* to, int n);
    void (*bgraToRgb2)(const PixelByte* from, PixelByte* to, int n);
    void (*mapBgra)(const PixelMap& map, const PixelByte* from, PixelByte* to, int n);

    // shuffles of 8-bit 4:2:2 and 4:2:0; packed [0] as 'UYVY', [1] as 'YUYV'
    void (*unpack[2])(const PixelByte* from, PixelByte* y, PixelByte* u, PixelByte* v, int n);
    void (*unpackLuma[2])(const PixelByte* from, PixelByte* y, int n);
    /// Two rows at once, their chroma mixed.
    void (*unpackTo420[2])(PixelMix mix, const PixelByte* row0, const PixelByte* row1,
                           PixelByte* y0, PixelByte* y1, PixelByte* u, PixelByte* v, int n);
    void (*unpackToNv12[2])(PixelMix mix, const PixelByte* row0, const PixelByte* row1,
                            PixelByte* y0, PixelByte* y1, PixelByte* uv, int n);
    void (*pack[2])(const PixelByte* y, const PixelByte* u, const PixelByte* v, PixelByte* to,
                    int n);
    void (*swapBytes)(const PixelByte* from, PixelByte* to, int n);  ///< n pairs of bytes
    void (*splitUv)(const PixelByte* uv, PixelByte* u, PixelByte* v, int n);
    void (*mergeUv)(const PixelByte* u, const PixelByte* v, PixelByte* uv, int n);

    // rows of one component: [0] 8 bits, [1] 10 bits
    void (*mixBytes)(PixelMix mix, const PixelByte* near, const PixelByte* far, PixelByte* to,
                     int n);
    void (*mixToWide[2])(PixelMix mix, const void* near, const void* far, PixelWord* wide, int n);
    void (*map[2][2])(const PixelMap& map, const void* from, void* to, int n);  ///< [from][to]
    void (*narrow[2])(const PixelMap& map, const PixelWord* wide, void* to, int n);
    void (*lumaMatrix[2])(const PixelLumaMatrix& matrix, const PixelWord* y, const PixelWord* u,
                          const PixelWord* v, void* to, int n);
    void (*chromaMatrix[2])(const PixelChromaMatrix& matrix, const PixelWord* u, const PixelWord* v,
                            void* toU, void* toV, int n);
    void (*doubleWide)(const PixelWord* half, PixelWord* full, int n);  ///< n of the full row
    void (*halveWide)(const PixelWord* full, PixelWord* half, int n);

    // between the families; luma [0] 8 bits, [1] 10 bits
    void (*toBgraHalf[2])(const PixelToRgb& rgb, const void* y, const PixelWord* u,
                          const PixelWord* v, PixelByte* to, int n);
    void (*toRv16Half[2])(const PixelToRgb& rgb, const void* y, const PixelWord* u,
                          const PixelWord* v, PixelByte* to, int n);
    void (*toBgraFull)(const PixelToRgb& rgb, const PixelWord* y, const PixelWord* u,
                       const PixelWord* v, PixelByte* to, int n);  ///< luma of 10 bits
    void (*bgraToLuma)(const PixelFromRgb& yuv, const PixelByte* from, PixelByte* y, int n);
    void (*bgraTo422[2])(const PixelFromRgb& yuv, const PixelByte* from, void* y, void* u, void* v,
                         int n);
    void (*bgraTo444)(const PixelFromRgb& yuv, const PixelByte* from, PixelWord* y, PixelWord* u,
                      PixelWord* v, int n);  ///< 10 bits
    /// Two rows at once; weights of `mix` must be even. Where there is one row, it is given twice.
    void (*bgraTo420)(const PixelFromRgb& yuv, PixelMix mix, const PixelByte* row0,
                      const PixelByte* row1, PixelByte* y0, PixelByte* y1, PixelByte* u,
                      PixelByte* v, int n);
    void (*bgraToNv12)(const PixelFromRgb& yuv, PixelMix mix, const PixelByte* row0,
                       const PixelByte* row1, PixelByte* y0, PixelByte* y1, PixelByte* uv, int n);
};

inline constexpr int kWidePadding = 64;

/// The plain reference: portable code, one pixel after the other.
const PixelKernels& PlainPixelKernels();

/// Vectorised sets, null where the processor (or the build) does not have them.
const PixelKernels* Sse41PixelKernels();
const PixelKernels* Avx2PixelKernels();
const PixelKernels* Avx512PixelKernels();

/// The fastest set that this processor can run; decided once.
const PixelKernels& BestPixelKernels();

}  // namespace Quillon::Orb
