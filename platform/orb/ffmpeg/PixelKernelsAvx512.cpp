#include "PixelKernelsPlain.h"

#if defined(__x86_64__)

#include <immintrin.h>

// gcc 12 takes the deliberately undefined operands of its own AVX-512 header for mistakes.
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif

// From here to the end of the file: the operations are templates, and compilers make those last.
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx512f,avx512bw"))), apply_to = function)
#else
#pragma GCC target("avx512f,avx512bw")
#endif

namespace Quillon::Orb {

namespace {

using V = __m512i;
constexpr const char* kName = "AVX-512";

// ---- the same at every width

inline V load(const void* from) {
    return _mm512_loadu_si512(from);
}
inline void store(void* to, V value) {
    _mm512_storeu_si512(to, value);
}
inline V zero() {
    return _mm512_setzero_si512();
}
inline V set16(short value) {
    return _mm512_set1_epi16(value);
}
inline V set32(unsigned value) {
    return _mm512_set1_epi32(static_cast<int>(value));
}
inline V and_(V a, V b) {
    return _mm512_and_si512(a, b);
}
inline V or_(V a, V b) {
    return _mm512_or_si512(a, b);
}
inline V add16(V a, V b) {
    return _mm512_add_epi16(a, b);
}
inline V add32(V a, V b) {
    return _mm512_add_epi32(a, b);
}
inline V multiply_low16(V a, V b) {
    return _mm512_mullo_epi16(a, b);
}
inline V multiply_high16(V a, V b) {
    return _mm512_mulhrs_epi16(a, b);
}
inline V multiply_add16(V a, V b) {
    return _mm512_madd_epi16(a, b);
}
inline V multiply_add8(V a, V b) {
    return _mm512_maddubs_epi16(a, b);
}
inline V min_signed16(V a, V b) {
    return _mm512_min_epi16(a, b);
}
inline V max_signed16(V a, V b) {
    return _mm512_max_epi16(a, b);
}
inline V min_unsigned16(V a, V b) {
    return _mm512_min_epu16(a, b);
}
inline V average16(V a, V b) {
    return _mm512_avg_epu16(a, b);
}
inline V unpack_lo8(V a, V b) {
    return _mm512_unpacklo_epi8(a, b);
}
inline V unpack_hi8(V a, V b) {
    return _mm512_unpackhi_epi8(a, b);
}
inline V unpack_lo16(V a, V b) {
    return _mm512_unpacklo_epi16(a, b);
}
inline V unpack_hi16(V a, V b) {
    return _mm512_unpackhi_epi16(a, b);
}
inline V pack_unsigned16(V a, V b) {
    return _mm512_packus_epi16(a, b);
}
inline V pack_signed32(V a, V b) {
    return _mm512_packs_epi32(a, b);
}
inline V pack_unsigned32(V a, V b) {
    return _mm512_packus_epi32(a, b);
}
inline V shuffle8(V a, V b) {
    return _mm512_shuffle_epi8(a, b);
}
template <int kBits>
inline V shift_left16(V a) {
    return _mm512_slli_epi16(a, kBits);
}
template <int kBits>
inline V shift_right16(V a) {
    return _mm512_srli_epi16(a, kBits);
}
template <int kBits>
inline V shift_right32(V a) {
    return _mm512_srli_epi32(a, kBits);
}
template <int kBits>
inline V shift_right_signed16(V a) {
    return _mm512_srai_epi16(a, kBits);
}
template <int kBits>
inline V shift_right_signed32(V a) {
    return _mm512_srai_epi32(a, kBits);
}

// ---- what differs

inline V lanes(PixelByte a, PixelByte b, PixelByte c, PixelByte d, PixelByte e, PixelByte f,
               PixelByte g, PixelByte h, PixelByte i, PixelByte j, PixelByte k, PixelByte l,
               PixelByte m, PixelByte n, PixelByte o, PixelByte p) {
    return _mm512_broadcast_i32x4(_mm_setr_epi8(a, b, c, d, e, f, g, h, i, j, k, l, m, n, o, p));
}
inline V set64(short a, short b, short c, short d) {
    return _mm512_broadcast_i32x4(_mm_setr_epi16(a, b, c, d, a, b, c, d));
}
inline V set128(int a, int b, int c, int d) {
    return _mm512_broadcast_i32x4(_mm_setr_epi32(a, b, c, d));
}

struct Pair {
    V lo, hi;
};
inline Pair to_lanes(V a, V b) {
    return {_mm512_shuffle_i64x2(a, b, 0x88), _mm512_shuffle_i64x2(a, b, 0xdd)};
}
inline Pair to_linear(Pair p) {
    const V first = _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11);
    const V second = _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15);
    return {_mm512_permutex2var_epi64(p.lo, first, p.hi),
            _mm512_permutex2var_epi64(p.lo, second, p.hi)};
}
inline V order_packed_words(V packed) {
    return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), packed);
}
inline V order_packed_pixels(V packed) {
    return _mm512_permutexvar_epi32(
        _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15), packed);
}
inline void store_lanes(void* to, V a, V b, V c, V d) {
    const V abLow = _mm512_shuffle_i32x4(a, b, 0x44), cdLow = _mm512_shuffle_i32x4(c, d, 0x44);
    const V abHigh = _mm512_shuffle_i32x4(a, b, 0xee), cdHigh = _mm512_shuffle_i32x4(c, d, 0xee);
    V* target = static_cast<V*>(to);
    _mm512_storeu_si512(target, _mm512_shuffle_i32x4(abLow, cdLow, 0x88));
    _mm512_storeu_si512(target + 1, _mm512_shuffle_i32x4(abLow, cdLow, 0xdd));
    _mm512_storeu_si512(target + 2, _mm512_shuffle_i32x4(abHigh, cdHigh, 0x88));
    _mm512_storeu_si512(target + 3, _mm512_shuffle_i32x4(abHigh, cdHigh, 0xdd));
}

inline void store_half_lo(void* to, V value) {
    _mm256_storeu_si256(static_cast<__m256i*>(to), _mm512_castsi512_si256(value));
}
inline void store_half_hi(void* to, V value) {
    _mm256_storeu_si256(static_cast<__m256i*>(to), _mm512_extracti64x4_epi64(value, 1));
}
inline V merge_halves(const void* u, const void* v) {
    const V a = _mm512_cvtepu8_epi16(_mm256_loadu_si256(static_cast<const __m256i*>(u)));
    const V b = _mm512_cvtepu8_epi16(_mm256_loadu_si256(static_cast<const __m256i*>(v)));
    return _mm512_or_si512(a, _mm512_slli_epi16(b, 8));
}
inline V repeat_first_pixel(V pixels) {
    return _mm512_permutexvar_epi32(
        _mm512_setr_epi32(0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14), pixels);
}

// [u0+u1 u2+u3 v0+v1 v2+v3] in each lane
inline V add_pairs32(V u, V v) {
    const __m512 a = _mm512_castsi512_ps(u), b = _mm512_castsi512_ps(v);
    return _mm512_add_epi32(_mm512_castps_si512(_mm512_shuffle_ps(a, b, 0x88)),
                            _mm512_castps_si512(_mm512_shuffle_ps(a, b, 0xdd)));
}
// From [uu vv uu vv] words in each lane to the us, then the vs.
inline V split_pairs32(V words) {
    return _mm512_permutexvar_epi32(
        _mm512_setr_epi32(0, 4, 8, 12, 2, 6, 10, 14, 1, 5, 9, 13, 3, 7, 11, 15), words);
}
inline V join_split(V a, V b) {
    return _mm512_permutex_epi64(_mm512_packus_epi16(a, b), _MM_SHUFFLE(3, 1, 2, 0));
}

#include "PixelKernelsBody.h"
#include "PixelKernelsBodyColour.h"

}  // namespace

const PixelKernels kAvx512PixelTable = kTable;

}  // namespace Quillon::Orb

#if defined(__clang__)
#pragma clang attribute pop
#endif

#endif
