#include "PixelKernelsPlain.h"

#if defined(__x86_64__)

#include <immintrin.h>

// From here to the end of the file: the operations are templates, and compilers make those last.
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("sse4.1"))), apply_to = function)
#else
#pragma GCC target("sse4.1")
#endif

namespace Quillon::Orb {

namespace {

using V = __m128i;
constexpr const char* kName = "SSE4.1";

// ---- the same at every width

inline V load(const void* from) {
    return _mm_loadu_si128(static_cast<const V*>(from));
}
inline void store(void* to, V value) {
    _mm_storeu_si128(static_cast<V*>(to), value);
}
inline V zero() {
    return _mm_setzero_si128();
}
inline V set16(short value) {
    return _mm_set1_epi16(value);
}
inline V set32(unsigned value) {
    return _mm_set1_epi32(static_cast<int>(value));
}
inline V and_(V a, V b) {
    return _mm_and_si128(a, b);
}
inline V or_(V a, V b) {
    return _mm_or_si128(a, b);
}
inline V add16(V a, V b) {
    return _mm_add_epi16(a, b);
}
inline V add32(V a, V b) {
    return _mm_add_epi32(a, b);
}
inline V multiply_low16(V a, V b) {
    return _mm_mullo_epi16(a, b);
}
inline V multiply_high16(V a, V b) {
    return _mm_mulhrs_epi16(a, b);
}
inline V multiply_add16(V a, V b) {
    return _mm_madd_epi16(a, b);
}
inline V multiply_add8(V a, V b) {
    return _mm_maddubs_epi16(a, b);
}
inline V min_signed16(V a, V b) {
    return _mm_min_epi16(a, b);
}
inline V max_signed16(V a, V b) {
    return _mm_max_epi16(a, b);
}
inline V min_unsigned16(V a, V b) {
    return _mm_min_epu16(a, b);
}
inline V average8(V a, V b) {
    return _mm_avg_epu8(a, b);
}
inline V average16(V a, V b) {
    return _mm_avg_epu16(a, b);
}
inline V unpack_lo8(V a, V b) {
    return _mm_unpacklo_epi8(a, b);
}
inline V unpack_hi8(V a, V b) {
    return _mm_unpackhi_epi8(a, b);
}
inline V unpack_lo16(V a, V b) {
    return _mm_unpacklo_epi16(a, b);
}
inline V unpack_hi16(V a, V b) {
    return _mm_unpackhi_epi16(a, b);
}
inline V pack_unsigned16(V a, V b) {
    return _mm_packus_epi16(a, b);
}
inline V pack_signed32(V a, V b) {
    return _mm_packs_epi32(a, b);
}
inline V pack_unsigned32(V a, V b) {
    return _mm_packus_epi32(a, b);
}
inline V shuffle8(V a, V b) {
    return _mm_shuffle_epi8(a, b);
}
template <int kBits>
inline V shift_left16(V a) {
    return _mm_slli_epi16(a, kBits);
}
template <int kBits>
inline V shift_right16(V a) {
    return _mm_srli_epi16(a, kBits);
}
template <int kBits>
inline V shift_right32(V a) {
    return _mm_srli_epi32(a, kBits);
}
template <int kBits>
inline V shift_right_signed16(V a) {
    return _mm_srai_epi16(a, kBits);
}
template <int kBits>
inline V shift_right_signed32(V a) {
    return _mm_srai_epi32(a, kBits);
}

// ---- what differs

inline V lanes(PixelByte a, PixelByte b, PixelByte c, PixelByte d, PixelByte e, PixelByte f,
               PixelByte g, PixelByte h, PixelByte i, PixelByte j, PixelByte k, PixelByte l,
               PixelByte m, PixelByte n, PixelByte o, PixelByte p) {
    return _mm_setr_epi8(a, b, c, d, e, f, g, h, i, j, k, l, m, n, o, p);
}
inline V set64(short a, short b, short c, short d) {
    return _mm_setr_epi16(a, b, c, d, a, b, c, d);
}

// One lane: lane order is the order of memory.
struct Pair {
    V lo, hi;
};
inline Pair to_lanes(V a, V b) {
    return {a, b};
}
inline Pair to_linear(Pair p) {
    return p;
}
inline V order_packed_words(V packed) {
    return packed;
}
inline V order_packed_pixels(V packed) {
    return packed;
}
inline void store_lanes(void* to, V a, V b, V c, V d) {
    V* target = static_cast<V*>(to);
    _mm_storeu_si128(target, a);
    _mm_storeu_si128(target + 1, b);
    _mm_storeu_si128(target + 2, c);
    _mm_storeu_si128(target + 3, d);
}

inline void store_half_lo(void* to, V value) {
    _mm_storel_epi64(static_cast<V*>(to), value);
}
inline void store_half_hi(void* to, V value) {
    _mm_storel_epi64(static_cast<V*>(to), _mm_unpackhi_epi64(value, value));
}
inline V merge_halves(const void* u, const void* v) {
    return _mm_unpacklo_epi8(_mm_loadl_epi64(static_cast<const V*>(u)),
                             _mm_loadl_epi64(static_cast<const V*>(v)));
}
inline V repeat_first_pixel(V pixels) {
    return _mm_shuffle_epi32(pixels, _MM_SHUFFLE(2, 1, 0, 0));
}

// Even and odd pixels of two vectors, lane by lane.
inline V even_pixels(V a, V b) {
    return _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b), 0x88));
}
inline V odd_pixels(V a, V b) {
    return _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b), 0xdd));
}
// `current` moved on by one pixel, with the last one of `previous` in front.
inline V shift_in_pixel(V previous, V current) {
    return _mm_alignr_epi8(current, previous, 12);
}
// What even_pixels of four vectors leaves of them after packing, back in the order of pixels: pairs
// of words; and in bytes, half a vector of U and half of V.
inline V order_pairs32(V words) {
    return words;
}
inline V join_chroma(V packed) {
    return packed;
}
inline V accumulate16(V sum, V a, V b) {
    return _mm_add_epi32(sum, _mm_madd_epi16(a, b));
}

// Three of four double words, each lane's three at its start.
inline V load_three_quarters(const PixelByte* from) {
    const V low = _mm_loadl_epi64(reinterpret_cast<const V*>(from));
    int high;
    __builtin_memcpy(&high, from + 8, sizeof high);
    return _mm_insert_epi32(low, high, 2);
}
inline void store_three_quarters(PixelByte* to, V value) {
    _mm_storel_epi64(reinterpret_cast<V*>(to), value);
    const int high = _mm_extract_epi32(value, 2);
    __builtin_memcpy(to + 8, &high, sizeof high);
}

// The halves of a vector, byte by byte in turn.
inline V merge_joined(V both) {
    return _mm_unpacklo_epi8(both, _mm_unpackhi_epi64(both, both));
}

#include "PixelKernelsBody.h"
#include "PixelKernelsBodyColour.h"

}  // namespace

const PixelKernels gSse41PixelTable = kTable;

}  // namespace Quillon::Orb

#if defined(__clang__)
#pragma clang attribute pop
#endif

#endif
