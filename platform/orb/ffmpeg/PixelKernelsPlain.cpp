#include "PixelKernelsPlain.h"

#include <algorithm>

namespace Quillon::Orb {

namespace Plain {

namespace {

/// The product of two words as the vector units form it: its upper half, rounded.
int scaled(int value, int gain) {
    return (value * gain + (1 << 14)) >> 15;
}

/// A word that is no code of 10 bits counts as the largest.
int legal(PixelByte code) {
    return code;
}
int legal(PixelWord code) {
    return std::min<int>(code, 1023);
}

int wide(PixelByte code) {
    return code << 7;
}
int wide(PixelWord code) {
    return legal(code) << 5;
}

template <class To>
constexpr int kBits = sizeof(To) == 1 ? 8 : 10;

/// Clamps to the codes of a depth.
template <class To>
To code(int value) {
    return static_cast<To>(std::clamp(value, 0, (1 << kBits<To>)-1));
}

/// From the scale of PixelMap.
template <class To>
To code_of_map(int sum) {
    return code<To>(sum >> (sizeof(To) == 1 ? 6 : 4));
}

/// From the scale of PixelFromRgb; `pairs` for sums over neighbours.
template <class To>
To code_of_rgb(int sum, int pairs) {
    return code<To>(sum >> ((sizeof(To) == 1 ? 15 : 13) + pairs));
}

void put_bgra(PixelByte* to, int x, int b, int g, int r) {
    to[4 * x] = code<PixelByte>(b);
    to[4 * x + 1] = code<PixelByte>(g);
    to[4 * x + 2] = code<PixelByte>(r);
    to[4 * x + 3] = 255;
}

template <class To>
To luma_of(const PixelFromRgb& yuv, const PixelByte* p) {
    return code_of_rgb<To>(p[0] * yuv.yb + p[1] * yuv.yg + p[2] * yuv.yr + yuv.addY, 0);
}

/// One chroma sample from 4, 8 or 12 weighted pixels that were summed per component.
template <class To>
void chroma_of(const PixelFromRgb& yuv, const int (&sum)[3], To& u, To& v) {
    u = code_of_rgb<To>(sum[0] * yuv.ub + sum[1] * yuv.ug + sum[2] * yuv.ur + yuv.addPairU, 4);
    v = code_of_rgb<To>(sum[0] * yuv.vb + sum[1] * yuv.vg + sum[2] * yuv.vr + yuv.addPairV, 4);
}

/// Adds pixel x and its neighbours, 1-2-1 times `weight`; rows go on as their ends.
void add_neighbours(const PixelByte* row, int x, int n, int weight, int (&sum)[3]) {
    const PixelByte* centre = row + 4 * x;
    const PixelByte* left = row + 4 * std::max(x - 1, 0);
    const PixelByte* right = row + 4 * std::min(x + 1, n - 1);
    for (int i = 0; i < 3; ++i) sum[i] += weight * (left[i] + 2 * centre[i] + right[i]);
}

int average(int a, int b) {
    return (a + b + 1) >> 1;
}

PixelByte mixed(PixelMix mix, int near, int far) {
    return static_cast<PixelByte>((near * mix.near + far * mix.far + 4) >> 3);
}

/// Wide chroma at column x of a row that has it at every column or at the even ones.
template <bool kHalf>
int chroma_at(const PixelWord* row, int x) {
    if (!kHalf) return row[x];
    return x % 2 ? average(row[x / 2], row[x / 2 + 1]) : row[x / 2];
}

/// Blue, green and red in units of 1/32 code, with half a code added, not clamped.
template <class Luma, bool kHalf>
void rgb_of(const PixelToRgb& rgb, const Luma* y, const PixelWord* u, const PixelWord* v, int x,
            int (&sum)[3]) {
    const int cu = chroma_at<kHalf>(u, x);
    const int cv = chroma_at<kHalf>(v, x);
    const int luma = scaled(wide(y[x]), rgb.y);
    sum[0] = luma + scaled(cu, rgb.ub) + rgb.addB;
    sum[1] = luma + scaled(cu, rgb.ug) + scaled(cv, rgb.vg) + rgb.addG;
    sum[2] = luma + scaled(cv, rgb.vr) + rgb.addR;
}

}  // namespace

void Rv24ToBgra(const PixelByte* from, PixelByte* to, int first, int n) {
    for (int x = first; x < n; ++x) {
        put_bgra(to, x, from[3 * x], from[3 * x + 1], from[3 * x + 2]);
    }
}

// 31 * 527 and the like: v * 255 / 31, rounded, without a division; exact for every v.
void Rv16ToBgra(const PixelByte* from, PixelByte* to, int first, int n) {
    for (int x = first; x < n; ++x) {
        const int pixel = from[2 * x] | from[2 * x + 1] << 8;
        put_bgra(to, x, ((pixel & 31) * 527 + 23) >> 6, ((pixel >> 5 & 63) * 259 + 33) >> 6,
                 ((pixel >> 11) * 527 + 23) >> 6);
    }
}

void Rgb2ToBgra(const PixelByte* from, PixelByte* to, int first, int n) {
    for (int x = first; x < n; ++x) {
        const int pixel = from[x];
        put_bgra(to, x, (pixel & 3) * 85, ((pixel >> 2 & 7) * 583 + 6) >> 4,
                 ((pixel >> 5) * 583 + 6) >> 4);
    }
}

void GreyToBgra(const PixelByte* from, PixelByte* to, int first, int n) {
    for (int x = first; x < n; ++x) put_bgra(to, x, from[x], from[x], from[x]);
}

void BgraToRv24(const PixelByte* from, PixelByte* to, int first, int n) {
    for (int x = first; x < n; ++x) {
        for (int i = 0; i < 3; ++i) to[3 * x + i] = from[4 * x + i];
    }
}

// v * 31 / 255 and the like, rounded; exact for every v.
void BgraToRv16(const PixelByte* from, PixelByte* to, int first, int n) {
    for (int x = first; x < n; ++x) {
        const PixelByte* p = from + 4 * x;
        const int pixel = (p[0] * 249 + 1014) >> 11 | ((p[1] * 253 + 505) >> 10) << 5 |
                          ((p[2] * 249 + 1014) >> 11) << 11;
        to[2 * x] = static_cast<PixelByte>(pixel);
        to[2 * x + 1] = static_cast<PixelByte>(pixel >> 8);
    }
}

void BgraToRgb2(const PixelByte* from, PixelByte* to, int first, int n) {
    for (int x = first; x < n; ++x) {
        const PixelByte* p = from + 4 * x;
        to[x] = static_cast<PixelByte>((p[0] * 3 + 129) >> 8 | ((p[1] * 225 + 4060) >> 13) << 2 |
                                       ((p[2] * 225 + 4060) >> 13) << 5);
    }
}

void MapBgra(const PixelMap& map, const PixelByte* from, PixelByte* to, int first, int n) {
    for (int x = first; x < n; ++x) {
        for (int i = 0; i < 3; ++i) {
            to[4 * x + i] =
                code_of_map<PixelByte>(scaled(wide(from[4 * x + i]), map.gain) + map.add);
        }
        to[4 * x + 3] = from[4 * x + 3];
    }
}

void Unpack(int luma, const PixelByte* from, PixelByte* y, PixelByte* u, PixelByte* v, int first,
            int n) {
    for (int x = first; x < n; x += 2) {
        const PixelByte* pair = from + 2 * x;
        y[x] = pair[luma];
        if (x + 1 < n) y[x + 1] = pair[luma + 2];
        u[x / 2] = pair[1 - luma];
        v[x / 2] = pair[3 - luma];
    }
}

void UnpackLuma(int luma, const PixelByte* from, PixelByte* y, int first, int n) {
    for (int x = first; x < n; ++x) y[x] = from[2 * x + luma];
}

void UnpackTo420(int luma, PixelMix mix, const PixelByte* row0, const PixelByte* row1,
                 PixelByte* y0, PixelByte* y1, PixelByte* u, PixelByte* v, int first, int n) {
    UnpackLuma(luma, row0, y0, first, n);
    UnpackLuma(luma, row1, y1, first, n);
    for (int x = first; x < n; x += 2) {
        const int at = 2 * x + 1 - luma;
        u[x / 2] = mixed(mix, row0[at], row1[at]);
        v[x / 2] = mixed(mix, row0[at + 2], row1[at + 2]);
    }
}

void UnpackToNv12(int luma, PixelMix mix, const PixelByte* row0, const PixelByte* row1,
                  PixelByte* y0, PixelByte* y1, PixelByte* uv, int first, int n) {
    UnpackLuma(luma, row0, y0, first, n);
    UnpackLuma(luma, row1, y1, first, n);
    for (int x = first; x < ((n + 1) & ~1); ++x) {
        const int at = 2 * x + 1 - luma;
        uv[x] = mixed(mix, row0[at], row1[at]);
    }
}

void Pack(int luma, const PixelByte* y, const PixelByte* u, const PixelByte* v, PixelByte* to,
          int first, int n) {
    for (int x = first; x < n; x += 2) {
        PixelByte* pair = to + 2 * x;
        pair[luma] = y[x];
        pair[luma + 2] = y[std::min(x + 1, n - 1)];
        pair[1 - luma] = u[x / 2];
        pair[3 - luma] = v[x / 2];
    }
}

void SwapBytes(const PixelByte* from, PixelByte* to, int first, int n) {
    for (int x = first; x < n; ++x) {
        to[2 * x] = from[2 * x + 1];
        to[2 * x + 1] = from[2 * x];
    }
}

void SplitUv(const PixelByte* uv, PixelByte* u, PixelByte* v, int first, int n) {
    for (int x = first; x < n; ++x) {
        u[x] = uv[2 * x];
        v[x] = uv[2 * x + 1];
    }
}

void MergeUv(const PixelByte* u, const PixelByte* v, PixelByte* uv, int first, int n) {
    for (int x = first; x < n; ++x) {
        uv[2 * x] = u[x];
        uv[2 * x + 1] = v[x];
    }
}

void MixBytes(PixelMix mix, const PixelByte* near, const PixelByte* far, PixelByte* to, int first,
              int n) {
    for (int x = first; x < n; ++x) {
        to[x] = mixed(mix, near[x], far[x]);
    }
}

template <class From>
void MixToWide(PixelMix mix, const From* near, const From* far, PixelWord* wideRow, int first,
               int n) {
    constexpr int kShift = sizeof(From) == 1 ? 4 : 2;
    for (int x = first; x < n; ++x) {
        const int sum = legal(near[x]) * mix.near + legal(far[x]) * mix.far;
        wideRow[x] = static_cast<PixelWord>(sum << kShift);
    }
}

template <class From, class To>
void Map(const PixelMap& map, const From* from, To* to, int first, int n) {
    for (int x = first; x < n; ++x) {
        to[x] = code_of_map<To>(scaled(wide(from[x]), map.gain) + map.add);
    }
}

template <class To>
void Narrow(const PixelMap& map, const PixelWord* wideRow, To* to, int first, int n) {
    for (int x = first; x < n; ++x) {
        to[x] = code_of_map<To>(scaled(wideRow[x], map.gain) + map.add);
    }
}

template <class To>
void LumaMatrix(const PixelLumaMatrix& matrix, const PixelWord* y, const PixelWord* u,
                const PixelWord* v, To* to, int first, int n) {
    for (int x = first; x < n; ++x) {
        to[x] = code_of_map<To>(scaled(y[x], matrix.y) + scaled(u[x], matrix.u) +
                                scaled(v[x], matrix.v) + matrix.add);
    }
}

template <class To>
void ChromaMatrix(const PixelChromaMatrix& matrix, const PixelWord* u, const PixelWord* v, To* toU,
                  To* toV, int first, int n) {
    for (int x = first; x < n; ++x) {
        toU[x] = code_of_map<To>(scaled(u[x], matrix.uu) + scaled(v[x], matrix.uv) + matrix.addU);
        toV[x] = code_of_map<To>(scaled(u[x], matrix.vu) + scaled(v[x], matrix.vv) + matrix.addV);
    }
}

// Chroma of 4:2:2 and 4:2:0 stands on the even columns: those are taken as they are, the odd ones
// lie in the middle between two.
void DoubleWide(const PixelWord* half, PixelWord* full, int first, int n) {
    for (int x = first; x < n; ++x) {
        const int even = half[x / 2];
        full[x] = static_cast<PixelWord>(x % 2 ? average(even, half[x / 2 + 1]) : even);
    }
}

void HalveWide(const PixelWord* full, PixelWord* half, int first, int n) {
    for (int x = first; x < n; x += 2) {
        const int sides = average(full[std::max(x - 1, 0)], full[std::min(x + 1, n - 1)]);
        half[x / 2] = static_cast<PixelWord>(average(sides, full[x]));
    }
}

template <class Luma, bool kHalf>
void ToBgra(const PixelToRgb& rgb, const Luma* y, const PixelWord* u, const PixelWord* v,
            PixelByte* to, int first, int n) {
    for (int x = first; x < n; ++x) {
        int sum[3];
        rgb_of<Luma, kHalf>(rgb, y, u, v, x, sum);
        put_bgra(to, x, sum[0] >> 5, sum[1] >> 5, sum[2] >> 5);
    }
}

// From sums straight to 5 and 6 bits: 31 / 255 and 63 / 255 of a code, with 6 bits behind the
// point; 28 and 24 are half a step less the half code that the sums have in them.
template <class Luma>
void ToRv16(const PixelToRgb& rgb, const Luma* y, const PixelWord* u, const PixelWord* v,
            PixelByte* to, int first, int n) {
    for (int x = first; x < n; ++x) {
        int sum[3];
        rgb_of<Luma, true>(rgb, y, u, v, x, sum);
        const int b = std::clamp((scaled(sum[0], 7967) + 28) >> 6, 0, 31);
        const int g = std::clamp((scaled(sum[1], 16192) + 24) >> 6, 0, 63);
        const int r = std::clamp((scaled(sum[2], 7967) + 28) >> 6, 0, 31);
        const int pixel = b | g << 5 | r << 11;
        to[2 * x] = static_cast<PixelByte>(pixel);
        to[2 * x + 1] = static_cast<PixelByte>(pixel >> 8);
    }
}

template <class To>
void BgraToLuma(const PixelFromRgb& yuv, const PixelByte* from, To* y, int first, int n) {
    for (int x = first; x < n; ++x) y[x] = luma_of<To>(yuv, from + 4 * x);
}

template <class To>
void BgraTo422(const PixelFromRgb& yuv, const PixelByte* from, To* y, To* u, To* v, int first,
               int n) {
    BgraToLuma(yuv, from, y, first, n);
    for (int x = first; x < n; x += 2) {
        int sum[3] = {};
        add_neighbours(from, x, n, 4, sum);
        chroma_of(yuv, sum, u[x / 2], v[x / 2]);
    }
}

void BgraTo444(const PixelFromRgb& yuv, const PixelByte* from, PixelWord* y, PixelWord* u,
               PixelWord* v, int first, int n) {
    BgraToLuma(yuv, from, y, first, n);
    for (int x = first; x < n; ++x) {
        const PixelByte* p = from + 4 * x;
        u[x] = code_of_rgb<PixelWord>(p[0] * yuv.ub + p[1] * yuv.ug + p[2] * yuv.ur + yuv.addU, 0);
        v[x] = code_of_rgb<PixelWord>(p[0] * yuv.vb + p[1] * yuv.vg + p[2] * yuv.vr + yuv.addV, 0);
    }
}

void BgraTo420(const PixelFromRgb& yuv, PixelMix mix, const PixelByte* row0, const PixelByte* row1,
               PixelByte* y0, PixelByte* y1, PixelByte* u, PixelByte* v, int first, int n) {
    BgraToLuma(yuv, row0, y0, first, n);
    BgraToLuma(yuv, row1, y1, first, n);
    for (int x = first; x < n; x += 2) {
        int sum[3] = {};
        add_neighbours(row0, x, n, mix.near / 2, sum);
        add_neighbours(row1, x, n, mix.far / 2, sum);
        chroma_of(yuv, sum, u[x / 2], v[x / 2]);
    }
}

void BgraToNv12(const PixelFromRgb& yuv, PixelMix mix, const PixelByte* row0, const PixelByte* row1,
                PixelByte* y0, PixelByte* y1, PixelByte* uv, int first, int n) {
    BgraToLuma(yuv, row0, y0, first, n);
    BgraToLuma(yuv, row1, y1, first, n);
    for (int x = first; x < n; x += 2) {
        int sum[3] = {};
        add_neighbours(row0, x, n, mix.near / 2, sum);
        add_neighbours(row1, x, n, mix.far / 2, sum);
        chroma_of(yuv, sum, uv[x], uv[x + 1]);
    }
}

template void MixToWide(PixelMix, const PixelByte*, const PixelByte*, PixelWord*, int, int);
template void MixToWide(PixelMix, const PixelWord*, const PixelWord*, PixelWord*, int, int);
template void Map(const PixelMap&, const PixelByte*, PixelByte*, int, int);
template void Map(const PixelMap&, const PixelByte*, PixelWord*, int, int);
template void Map(const PixelMap&, const PixelWord*, PixelByte*, int, int);
template void Map(const PixelMap&, const PixelWord*, PixelWord*, int, int);
template void Narrow(const PixelMap&, const PixelWord*, PixelByte*, int, int);
template void Narrow(const PixelMap&, const PixelWord*, PixelWord*, int, int);
template void LumaMatrix(const PixelLumaMatrix&, const PixelWord*, const PixelWord*,
                         const PixelWord*, PixelByte*, int, int);
template void LumaMatrix(const PixelLumaMatrix&, const PixelWord*, const PixelWord*,
                         const PixelWord*, PixelWord*, int, int);
template void ChromaMatrix(const PixelChromaMatrix&, const PixelWord*, const PixelWord*, PixelByte*,
                           PixelByte*, int, int);
template void ChromaMatrix(const PixelChromaMatrix&, const PixelWord*, const PixelWord*, PixelWord*,
                           PixelWord*, int, int);
template void ToBgra<PixelByte, true>(const PixelToRgb&, const PixelByte*, const PixelWord*,
                                      const PixelWord*, PixelByte*, int, int);
template void ToBgra<PixelWord, true>(const PixelToRgb&, const PixelWord*, const PixelWord*,
                                      const PixelWord*, PixelByte*, int, int);
template void ToBgra<PixelWord, false>(const PixelToRgb&, const PixelWord*, const PixelWord*,
                                       const PixelWord*, PixelByte*, int, int);
template void ToRv16(const PixelToRgb&, const PixelByte*, const PixelWord*, const PixelWord*,
                     PixelByte*, int, int);
template void ToRv16(const PixelToRgb&, const PixelWord*, const PixelWord*, const PixelWord*,
                     PixelByte*, int, int);
template void BgraToLuma(const PixelFromRgb&, const PixelByte*, PixelByte*, int, int);
template void BgraTo422(const PixelFromRgb&, const PixelByte*, PixelByte*, PixelByte*, PixelByte*,
                        int, int);
template void BgraTo422(const PixelFromRgb&, const PixelByte*, PixelWord*, PixelWord*, PixelWord*,
                        int, int);

}  // namespace Plain

namespace {

// The table's form of the operations: whole rows, types erased where they vary.

template <auto kRow>
void whole_row(const PixelByte* from, PixelByte* to, int n) {
    kRow(from, to, 0, n);
}

template <int kLuma>
void whole_unpack(const PixelByte* from, PixelByte* y, PixelByte* u, PixelByte* v, int n) {
    Plain::Unpack(kLuma, from, y, u, v, 0, n);
}

template <int kLuma>
void whole_unpack_luma(const PixelByte* from, PixelByte* y, int n) {
    Plain::UnpackLuma(kLuma, from, y, 0, n);
}

template <int kLuma>
void whole_unpack_to_420(PixelMix mix, const PixelByte* row0, const PixelByte* row1, PixelByte* y0,
                         PixelByte* y1, PixelByte* u, PixelByte* v, int n) {
    Plain::UnpackTo420(kLuma, mix, row0, row1, y0, y1, u, v, 0, n);
}

template <int kLuma>
void whole_unpack_to_nv12(PixelMix mix, const PixelByte* row0, const PixelByte* row1, PixelByte* y0,
                          PixelByte* y1, PixelByte* uv, int n) {
    Plain::UnpackToNv12(kLuma, mix, row0, row1, y0, y1, uv, 0, n);
}

template <int kLuma>
void whole_pack(const PixelByte* y, const PixelByte* u, const PixelByte* v, PixelByte* to, int n) {
    Plain::Pack(kLuma, y, u, v, to, 0, n);
}

template <class From>
void whole_mix(PixelMix mix, const void* near, const void* far, PixelWord* wide, int n) {
    Plain::MixToWide(mix, static_cast<const From*>(near), static_cast<const From*>(far), wide, 0,
                     n);
}

template <class From, class To>
void whole_map(const PixelMap& map, const void* from, void* to, int n) {
    Plain::Map(map, static_cast<const From*>(from), static_cast<To*>(to), 0, n);
}

template <class To>
void whole_narrow(const PixelMap& map, const PixelWord* wide, void* to, int n) {
    Plain::Narrow(map, wide, static_cast<To*>(to), 0, n);
}

template <class To>
void whole_luma(const PixelLumaMatrix& matrix, const PixelWord* y, const PixelWord* u,
                const PixelWord* v, void* to, int n) {
    Plain::LumaMatrix(matrix, y, u, v, static_cast<To*>(to), 0, n);
}

template <class To>
void whole_chroma(const PixelChromaMatrix& matrix, const PixelWord* u, const PixelWord* v,
                  void* toU, void* toV, int n) {
    Plain::ChromaMatrix(matrix, u, v, static_cast<To*>(toU), static_cast<To*>(toV), 0, n);
}

template <class Luma>
void whole_to_bgra(const PixelToRgb& rgb, const void* y, const PixelWord* u, const PixelWord* v,
                   PixelByte* to, int n) {
    Plain::ToBgra<Luma, true>(rgb, static_cast<const Luma*>(y), u, v, to, 0, n);
}

template <class To>
void whole_bgra_to_422(const PixelFromRgb& yuv, const PixelByte* from, void* y, void* u, void* v,
                       int n) {
    Plain::BgraTo422(yuv, from, static_cast<To*>(y), static_cast<To*>(u), static_cast<To*>(v), 0,
                     n);
}

template <class Luma>
void whole_to_rv16(const PixelToRgb& rgb, const void* y, const PixelWord* u, const PixelWord* v,
                   PixelByte* to, int n) {
    Plain::ToRv16(rgb, static_cast<const Luma*>(y), u, v, to, 0, n);
}

constexpr PixelKernels kPlain = {
    .name = "plain",
    .rv24ToBgra = whole_row<Plain::Rv24ToBgra>,
    .rv16ToBgra = whole_row<Plain::Rv16ToBgra>,
    .rgb2ToBgra = whole_row<Plain::Rgb2ToBgra>,
    .greyToBgra = whole_row<Plain::GreyToBgra>,
    .bgraToRv24 = whole_row<Plain::BgraToRv24>,
    .bgraToRv16 = whole_row<Plain::BgraToRv16>,
    .bgraToRgb2 = whole_row<Plain::BgraToRgb2>,
    .mapBgra = [](const PixelMap& map, const PixelByte* from, PixelByte* to,
                  int n) { Plain::MapBgra(map, from, to, 0, n); },
    .unpack = {whole_unpack<1>, whole_unpack<0>},
    .unpackLuma = {whole_unpack_luma<1>, whole_unpack_luma<0>},
    .unpackTo420 = {whole_unpack_to_420<1>, whole_unpack_to_420<0>},
    .unpackToNv12 = {whole_unpack_to_nv12<1>, whole_unpack_to_nv12<0>},
    .pack = {whole_pack<1>, whole_pack<0>},
    .swapBytes = whole_row<Plain::SwapBytes>,
    .splitUv = [](const PixelByte* uv, PixelByte* u, PixelByte* v,
                  int n) { Plain::SplitUv(uv, u, v, 0, n); },
    .mergeUv = [](const PixelByte* u, const PixelByte* v, PixelByte* uv,
                  int n) { Plain::MergeUv(u, v, uv, 0, n); },
    .mixBytes = [](PixelMix mix, const PixelByte* near, const PixelByte* far, PixelByte* to,
                   int n) { Plain::MixBytes(mix, near, far, to, 0, n); },
    .mixToWide = {whole_mix<PixelByte>, whole_mix<PixelWord>},
    .map = {{whole_map<PixelByte, PixelByte>, whole_map<PixelByte, PixelWord>},
            {whole_map<PixelWord, PixelByte>, whole_map<PixelWord, PixelWord>}},
    .narrow = {whole_narrow<PixelByte>, whole_narrow<PixelWord>},
    .lumaMatrix = {whole_luma<PixelByte>, whole_luma<PixelWord>},
    .chromaMatrix = {whole_chroma<PixelByte>, whole_chroma<PixelWord>},
    .doubleWide = [](const PixelWord* half, PixelWord* full,
                     int n) { Plain::DoubleWide(half, full, 0, n); },
    .halveWide = [](const PixelWord* full, PixelWord* half,
                    int n) { Plain::HalveWide(full, half, 0, n); },
    .toBgraHalf = {whole_to_bgra<PixelByte>, whole_to_bgra<PixelWord>},
    .toRv16Half = {whole_to_rv16<PixelByte>, whole_to_rv16<PixelWord>},
    .toBgraFull = [](const PixelToRgb& rgb, const PixelWord* y, const PixelWord* u,
                     const PixelWord* v, PixelByte* to,
                     int n) { Plain::ToBgra<PixelWord, false>(rgb, y, u, v, to, 0, n); },
    .bgraToLuma = [](const PixelFromRgb& yuv, const PixelByte* from, PixelByte* y,
                     int n) { Plain::BgraToLuma(yuv, from, y, 0, n); },
    .bgraTo422 = {whole_bgra_to_422<PixelByte>, whole_bgra_to_422<PixelWord>},
    .bgraTo444 = [](const PixelFromRgb& yuv, const PixelByte* from, PixelWord* y, PixelWord* u,
                    PixelWord* v, int n) { Plain::BgraTo444(yuv, from, y, u, v, 0, n); },
    .bgraTo420 = [](const PixelFromRgb& yuv, PixelMix mix, const PixelByte* row0,
                    const PixelByte* row1, PixelByte* y0, PixelByte* y1, PixelByte* u, PixelByte* v,
                    int n) { Plain::BgraTo420(yuv, mix, row0, row1, y0, y1, u, v, 0, n); },
    .bgraToNv12 = [](const PixelFromRgb& yuv, PixelMix mix, const PixelByte* row0,
                     const PixelByte* row1, PixelByte* y0, PixelByte* y1, PixelByte* uv,
                     int n) { Plain::BgraToNv12(yuv, mix, row0, row1, y0, y1, uv, 0, n); },
};

}  // namespace

const PixelKernels& PlainPixelKernels() {
    return kPlain;
}

}  // namespace Quillon::Orb
