#include "PixelKernelsPlain.h"

#if defined(__x86_64__)

#include <immintrin.h>

// From here to the end of the file: the operations are templates, and compilers make those last.
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC target("avx2")
#endif

namespace Quillon::Orb {

namespace {

using V = __m256i;
constexpr const char* kName = "AVX2";

// ---- the same at every width

inline V load(const void* from) {
    return _mm256_loadu_si256(static_cast<const V*>(from));
}
inline void store(void* to, V value) {
    _mm256_storeu_si256(static_cast<V*>(to), value);
}
inline V zero() {
    return _mm256_setzero_si256();
}
inline V set16(short value) {
    return _mm256_set1_epi16(value);
}
inline V set32(unsigned value) {
    return _mm256_set1_epi32(static_cast<int>(value));
}
inline V and_(V a, V b) {
    return _mm256_and_si256(a, b);
}
inline V or_(V a, V b) {
    return _mm256_or_si256(a, b);
}
inline V add16(V a, V b) {
    return _mm256_add_epi16(a, b);
}
inline V add32(V a, V b) {
    return _mm256_add_epi32(a, b);
}
inline V multiply_low16(V a, V b) {
    return _mm256_mullo_epi16(a, b);
}
inline V multiply_high16(V a, V b) {
    return _mm256_mulhrs_epi16(a, b);
}
inline V multiply_add16(V a, V b) {
    return _mm256_madd_epi16(a, b);
}
inline V multiply_add8(V a, V b) {
    return _mm256_maddubs_epi16(a, b);
}
inline V min_signed16(V a, V b) {
    return _mm256_min_epi16(a, b);
}
inline V max_signed16(V a, V b) {
    return _mm256_max_epi16(a, b);
}
inline V min_unsigned16(V a, V b) {
    return _mm256_min_epu16(a, b);
}
inline V average8(V a, V b) {
    return _mm256_avg_epu8(a, b);
}
inline V average16(V a, V b) {
    return _mm256_avg_epu16(a, b);
}
inline V unpack_lo8(V a, V b) {
    return _mm256_unpacklo_epi8(a, b);
}
inline V unpack_hi8(V a, V b) {
    return _mm256_unpackhi_epi8(a, b);
}
inline V unpack_lo16(V a, V b) {
    return _mm256_unpacklo_epi16(a, b);
}
inline V unpack_hi16(V a, V b) {
    return _mm256_unpackhi_epi16(a, b);
}
inline V pack_unsigned16(V a, V b) {
    return _mm256_packus_epi16(a, b);
}
inline V pack_signed32(V a, V b) {
    return _mm256_packs_epi32(a, b);
}
inline V pack_unsigned32(V a, V b) {
    return _mm256_packus_epi32(a, b);
}
inline V shuffle8(V a, V b) {
    return _mm256_shuffle_epi8(a, b);
}
template <int kBits>
inline V shift_left16(V a) {
    return _mm256_slli_epi16(a, kBits);
}
template <int kBits>
inline V shift_right16(V a) {
    return _mm256_srli_epi16(a, kBits);
}
template <int kBits>
inline V shift_right32(V a) {
    return _mm256_srli_epi32(a, kBits);
}
template <int kBits>
inline V shift_right_signed16(V a) {
    return _mm256_srai_epi16(a, kBits);
}
template <int kBits>
inline V shift_right_signed32(V a) {
    return _mm256_srai_epi32(a, kBits);
}

// ---- what differs

inline V lanes(PixelByte a, PixelByte b, PixelByte c, PixelByte d, PixelByte e, PixelByte f,
               PixelByte g, PixelByte h, PixelByte i, PixelByte j, PixelByte k, PixelByte l,
               PixelByte m, PixelByte n, PixelByte o, PixelByte p) {
    return _mm256_broadcastsi128_si256(
        _mm_setr_epi8(a, b, c, d, e, f, g, h, i, j, k, l, m, n, o, p));
}
inline V set64(short a, short b, short c, short d) {
    return _mm256_broadcastsi128_si256(_mm_setr_epi16(a, b, c, d, a, b, c, d));
}

struct Pair {
    V lo, hi;
};
inline Pair to_lanes(V a, V b) {
    return {_mm256_permute2x128_si256(a, b, 0x20), _mm256_permute2x128_si256(a, b, 0x31)};
}
inline Pair to_linear(Pair p) {
    return to_lanes(p.lo, p.hi);
}
inline V order_packed_words(V packed) {
    return _mm256_permute4x64_epi64(packed, _MM_SHUFFLE(3, 1, 2, 0));
}
inline V order_packed_pixels(V packed) {
    return _mm256_permutevar8x32_epi32(packed, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}
inline void store_lanes(void* to, V a, V b, V c, V d) {
    V* target = static_cast<V*>(to);
    _mm256_storeu_si256(target, _mm256_permute2x128_si256(a, b, 0x20));
    _mm256_storeu_si256(target + 1, _mm256_permute2x128_si256(c, d, 0x20));
    _mm256_storeu_si256(target + 2, _mm256_permute2x128_si256(a, b, 0x31));
    _mm256_storeu_si256(target + 3, _mm256_permute2x128_si256(c, d, 0x31));
}

inline void store_half_lo(void* to, V value) {
    _mm_storeu_si128(static_cast<__m128i*>(to), _mm256_castsi256_si128(value));
}
inline void store_half_hi(void* to, V value) {
    _mm_storeu_si128(static_cast<__m128i*>(to), _mm256_extracti128_si256(value, 1));
}
inline V merge_halves(const void* u, const void* v) {
    const __m128i a = _mm_loadu_si128(static_cast<const __m128i*>(u));
    const __m128i b = _mm_loadu_si128(static_cast<const __m128i*>(v));
    return _mm256_set_m128i(_mm_unpackhi_epi8(a, b), _mm_unpacklo_epi8(a, b));
}
inline V repeat_first_pixel(V pixels) {
    return _mm256_permutevar8x32_epi32(pixels, _mm256_setr_epi32(0, 0, 1, 2, 3, 4, 5, 6));
}

// Even and odd pixels of two vectors, lane by lane.
inline V even_pixels(V a, V b) {
    return _mm256_castps_si256(
        _mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), 0x88));
}
inline V odd_pixels(V a, V b) {
    return _mm256_castps_si256(
        _mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), 0xdd));
}
// `current` moved on by one pixel, with the last one of `previous` in front.
inline V shift_in_pixel(V previous, V current) {
    return _mm256_alignr_epi8(current, _mm256_permute2x128_si256(previous, current, 0x21), 12);
}
// What even_pixels of four vectors leaves of them after packing, back in the order of pixels: pairs
// of words; and in bytes, half a vector of U and half of V.
inline V order_pairs32(V words) {
    return _mm256_permutevar8x32_epi32(words, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}
inline V join_chroma(V packed) {
    const __m128i a = _mm256_castsi256_si128(packed), b = _mm256_extracti128_si256(packed, 1);
    return _mm256_set_m128i(_mm_unpackhi_epi16(a, b), _mm_unpacklo_epi16(a, b));
}
inline V accumulate16(V sum, V a, V b) {
    return _mm256_add_epi32(sum, _mm256_madd_epi16(a, b));
}

// Three of four double words, each lane's three at its start.
inline V load_three_quarters(const PixelByte* from) {
    const V mask = _mm256_setr_epi32(-1, -1, -1, -1, -1, -1, 0, 0);
    const V six = _mm256_maskload_epi32(reinterpret_cast<const int*>(from), mask);
    return _mm256_permutevar8x32_epi32(six, _mm256_setr_epi32(0, 1, 2, 2, 3, 4, 5, 5));
}
inline void store_three_quarters(PixelByte* to, V value) {
    const V six = _mm256_permutevar8x32_epi32(value, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm256_castsi256_si128(six));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to + 16), _mm256_extracti128_si256(six, 1));
}

// The halves of a vector, byte by byte in turn.
inline V merge_joined(V both) {
    const __m128i a = _mm256_castsi256_si128(both), b = _mm256_extracti128_si256(both, 1);
    return _mm256_set_m128i(_mm_unpackhi_epi8(a, b), _mm_unpacklo_epi8(a, b));
}

#include "PixelKernelsBody.h"
#include "PixelKernelsBodyColour.h"

}  // namespace

const PixelKernels gAvx2PixelTable = kTable;

}  // namespace Quillon::Orb

#if defined(__clang__)
#pragma clang attribute pop
#endif

#endif
