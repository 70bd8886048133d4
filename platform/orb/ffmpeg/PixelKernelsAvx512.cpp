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
#pragma clang attribute push(__attribute__((target("avx512f,avx512bw,avx512vnni"))), \
                             apply_to = function)
#else
#pragma GCC target("avx512f,avx512bw,avx512vnni")
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
inline V average8(V a, V b) {
    return _mm512_avg_epu8(a, b);
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

// Even and odd pixels of two vectors, lane by lane.
inline V even_pixels(V a, V b) {
    return _mm512_castps_si512(
        _mm512_shuffle_ps(_mm512_castsi512_ps(a), _mm512_castsi512_ps(b), 0x88));
}
inline V odd_pixels(V a, V b) {
    return _mm512_castps_si512(
        _mm512_shuffle_ps(_mm512_castsi512_ps(a), _mm512_castsi512_ps(b), 0xdd));
}
// `current` moved on by one pixel, with the last one of `previous` in front.
inline V shift_in_pixel(V previous, V current) {
    return _mm512_alignr_epi32(current, previous, 15);
}
// What even_pixels of four vectors leaves of them after packing, back in the order of pixels: pairs
// of words; and in bytes, half a vector of U and half of V.
inline V order_pairs32(V words) {
    return _mm512_permutexvar_epi32(
        _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15), words);
}
inline V join_chroma(V packed) {
    const V order = _mm512_set_epi16(31, 23, 15, 7, 30, 22, 14, 6, 29, 21, 13, 5, 28, 20, 12, 4, 27,
                                     19, 11, 3, 26, 18, 10, 2, 25, 17, 9, 1, 24, 16, 8, 0);
    return _mm512_permutexvar_epi16(order, packed);
}
inline V accumulate16(V sum, V a, V b) {
    return _mm512_dpwssd_epi32(sum, a, b);
}

// Three of four double words, each lane's three at its start.
inline V load_three_quarters(const PixelByte* from) {
    const V twelve = _mm512_maskz_loadu_epi32(0x0fff, from);
    return _mm512_permutexvar_epi32(
        _mm512_setr_epi32(0, 1, 2, 2, 3, 4, 5, 5, 6, 7, 8, 8, 9, 10, 11, 11), twelve);
}
inline void store_three_quarters(PixelByte* to, V value) {
    const V twelve = _mm512_permutexvar_epi32(
        _mm512_setr_epi32(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 15, 15, 15, 15), value);
    _mm512_mask_storeu_epi32(to, 0x0fff, twelve);
}

// The halves of a vector, byte by byte in turn.
inline V merge_joined(V both) {
    const V a = _mm512_cvtepu8_epi16(_mm512_castsi512_si256(both));
    const V b = _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(both, 1));
    return _mm512_or_si512(a, _mm512_slli_epi16(b, 8));
}

#include "PixelKernelsBody.h"
#include "PixelKernelsBodyColour.h"

}  // namespace

const PixelKernels gAvx512PixelTable = kTable;

}  // namespace Quillon::Orb

#if defined(__clang__)
#pragma clang attribute pop
#endif

#endif
