#pragma once

#include "PixelKernels.h"

namespace Quillon::Orb {

// The vectorised tables, where the target has them; whether the processor can run them is for
// PixelKernels.cpp to ask.
extern const PixelKernels gSse41PixelTable;
extern const PixelKernels gAvx2PixelTable;
extern const PixelKernels gAvx512PixelTable;

// The plain row operations with a first pixel: the vectorised sets let them finish what is left of
// a row, so the neighbours to the left of `first` are real ones. `first` is always even.
namespace Plain {

void Rv24ToBgra(const PixelByte* from, PixelByte* to, int first, int n);
void Rv16ToBgra(const PixelByte* from, PixelByte* to, int first, int n);
void Rgb2ToBgra(const PixelByte* from, PixelByte* to, int first, int n);
void GreyToBgra(const PixelByte* from, PixelByte* to, int first, int n);
void BgraToRv24(const PixelByte* from, PixelByte* to, int first, int n);
void BgraToRv16(const PixelByte* from, PixelByte* to, int first, int n);
void BgraToRgb2(const PixelByte* from, PixelByte* to, int first, int n);
void MapBgra(const PixelMap& map, const PixelByte* from, PixelByte* to, int first, int n);

/// `luma` is the byte of a pair where luma stands: 1 for 'UYVY', 0 for 'YUYV'.
void Unpack(int luma, const PixelByte* from, PixelByte* y, PixelByte* u, PixelByte* v, int first,
            int n);
void UnpackLuma(int luma, const PixelByte* from, PixelByte* y, int first, int n);
void UnpackTo420(int luma, PixelMix mix, const PixelByte* row0, const PixelByte* row1,
                 PixelByte* y0, PixelByte* y1, PixelByte* u, PixelByte* v, int first, int n);
void UnpackToNv12(int luma, PixelMix mix, const PixelByte* row0, const PixelByte* row1,
                  PixelByte* y0, PixelByte* y1, PixelByte* uv, int first, int n);
void Pack(int luma, const PixelByte* y, const PixelByte* u, const PixelByte* v, PixelByte* to,
          int first, int n);
void SwapBytes(const PixelByte* from, PixelByte* to, int first, int n);
void SplitUv(const PixelByte* uv, PixelByte* u, PixelByte* v, int first, int n);
void MergeUv(const PixelByte* u, const PixelByte* v, PixelByte* uv, int first, int n);

void MixBytes(PixelMix mix, const PixelByte* near, const PixelByte* far, PixelByte* to, int first,
              int n);
template <class From>
void MixToWide(PixelMix mix, const From* near, const From* far, PixelWord* wide, int first, int n);
template <class From, class To>
void Map(const PixelMap& map, const From* from, To* to, int first, int n);
template <class To>
void Narrow(const PixelMap& map, const PixelWord* wide, To* to, int first, int n);
template <class To>
void LumaMatrix(const PixelLumaMatrix& matrix, const PixelWord* y, const PixelWord* u,
                const PixelWord* v, To* to, int first, int n);
template <class To>
void ChromaMatrix(const PixelChromaMatrix& matrix, const PixelWord* u, const PixelWord* v, To* toU,
                  To* toV, int first, int n);
void DoubleWide(const PixelWord* half, PixelWord* full, int first, int n);
void HalveWide(const PixelWord* full, PixelWord* half, int first, int n);

template <class Luma, bool kHalf>
void ToBgra(const PixelToRgb& rgb, const Luma* y, const PixelWord* u, const PixelWord* v,
            PixelByte* to, int first, int n);
template <class Luma>
void ToRv16(const PixelToRgb& rgb, const Luma* y, const PixelWord* u, const PixelWord* v,
            PixelByte* to, int first, int n);
template <class To>
void BgraToLuma(const PixelFromRgb& yuv, const PixelByte* from, To* y, int first, int n);
template <class To>
void BgraTo422(const PixelFromRgb& yuv, const PixelByte* from, To* y, To* u, To* v, int first,
               int n);
void BgraTo444(const PixelFromRgb& yuv, const PixelByte* from, PixelWord* y, PixelWord* u,
               PixelWord* v, int first, int n);
void BgraTo420(const PixelFromRgb& yuv, PixelMix mix, const PixelByte* row0, const PixelByte* row1,
               PixelByte* y0, PixelByte* y1, PixelByte* u, PixelByte* v, int first, int n);
void BgraToNv12(const PixelFromRgb& yuv, PixelMix mix, const PixelByte* row0, const PixelByte* row1,
                PixelByte* y0, PixelByte* y1, PixelByte* uv, int first, int n);

}  // namespace Plain

}  // namespace Quillon::Orb
