#pragma once

// Continues PixelKernelsBody.h under the same rules: what goes between red, green and blue and Y, U
// and V, and the table of all operations.

// ---- Y, U and V to BGRA

/// What chroma contributes to blue, green and red, constants included, in units of 1/32 code.
struct Share {
    V b, g, r;
};

struct RgbGains {
    V y, ub, ug, vg, vr, addB, addG, addR;

    explicit RgbGains(const PixelToRgb& rgb)
        : y(set16(rgb.y)),
          ub(set16(rgb.ub)),
          ug(set16(rgb.ug)),
          vg(set16(rgb.vg)),
          vr(set16(rgb.vr)),
          addB(set16(rgb.addB)),
          addG(set16(rgb.addG)),
          addR(set16(rgb.addR)) {}

    Share Of(V u, V v) const {
        const V g = add16(multiply_high16(u, ug), multiply_high16(v, vg));
        return {add16(multiply_high16(u, ub), addB), add16(g, addG),
                add16(multiply_high16(v, vr), addR)};
    }
};

inline Share add_luma(Share share, V luma) {
    return {add16(share.b, luma), add16(share.g, luma), add16(share.r, luma)};
}

/// The sums of kBytes pixels from chroma at the even columns, in lane order.
struct Sums {
    Share lo, hi;
};

template <class Luma>
inline Sums sums_of_half(const RgbGains& gains, const Luma* y, const PixelWord* u,
                         const PixelWord* v) {
    const V u0 = load(u), v0 = load(v);
    const Share even = gains.Of(u0, v0);
    const Share odd = gains.Of(average16(u0, load(u + 1)), average16(v0, load(v + 1)));
    const Pair wide = load_wide(y);
    const Share lo = {unpack_lo16(even.b, odd.b), unpack_lo16(even.g, odd.g),
                      unpack_lo16(even.r, odd.r)};
    const Share hi = {unpack_hi16(even.b, odd.b), unpack_hi16(even.g, odd.g),
                      unpack_hi16(even.r, odd.r)};
    return {add_luma(lo, multiply_high16(wide.lo, gains.y)),
            add_luma(hi, multiply_high16(wide.hi, gains.y))};
}

inline Sums sums_of_full(const RgbGains& gains, const PixelWord* y, const PixelWord* u,
                         const PixelWord* v) {
    const Pair pu = load_words(u), pv = load_words(v), wide = load_wide(y);
    return {add_luma(gains.Of(pu.lo, pv.lo), multiply_high16(wide.lo, gains.y)),
            add_luma(gains.Of(pu.hi, pv.hi), multiply_high16(wide.hi, gains.y))};
}

inline V code_of_sums(V lo, V hi) {
    return pack_unsigned16(shift_right_signed16<5>(lo), shift_right_signed16<5>(hi));
}

template <class Luma, bool kHalf>
struct ToBgraRow {
    const PixelToRgb& rgb;
    const Luma* y;
    const PixelWord *u, *v;
    PixelByte* to;
    const RgbGains gains{rgb};

    void Block(int x) const {
        Sums sums;
        if constexpr (kHalf) {
            sums = sums_of_half(gains, y + x, u + x / 2, v + x / 2);
        } else {
            sums = sums_of_full(gains, y + x, u + x, v + x);
        }
        store_bgra(to + 4 * x, code_of_sums(sums.lo.b, sums.hi.b),
                   code_of_sums(sums.lo.g, sums.hi.g), code_of_sums(sums.lo.r, sums.hi.r),
                   set16(-1));
    }
    void Tail(int x, int n) const { Plain::ToBgra<Luma, kHalf>(rgb, y, u, v, to, x, n); }
};

template <class Luma>
struct ToRv16Row {
    const PixelToRgb& rgb;
    const Luma* y;
    const PixelWord *u, *v;
    PixelByte* to;
    const RgbGains gains{rgb};

    void Block(int x) const {
        const Sums sums = sums_of_half(gains, y + x, u + x / 2, v + x / 2);
        const Pair words = to_linear({pixels(sums.lo), pixels(sums.hi)});
        store(to + 2 * x, words.lo);
        store(to + 2 * x + kBytes, words.hi);
    }
    void Tail(int x, int n) const { Plain::ToRv16(rgb, y, u, v, to, x, n); }

    static V pixels(const Share& sum) {
        const V b = bits(sum.b, 7967, 28, 31);
        const V g = bits(sum.g, 16192, 24, 63);
        const V r = bits(sum.r, 7967, 28, 31);
        return or_(b, or_(shift_left16<5>(g), shift_left16<11>(r)));
    }
    static V bits(V sum, short gain, short add, short top) {
        const V code =
            shift_right_signed16<6>(add16(multiply_high16(sum, set16(gain)), set16(add)));
        return max_signed16(min_signed16(code, set16(top)), zero());
    }
};

// ---- BGRA to Y, U and V

/// The gains of luma for blue and red, and for green, as words of a pixel.
struct LumaGains {
    V br, ga, add;

    explicit LumaGains(const PixelFromRgb& yuv)
        : br(set32(static_cast<unsigned short>(yuv.yb) | static_cast<unsigned>(yuv.yr) << 16)),
          ga(set32(static_cast<unsigned short>(yuv.yg))),
          add(set32(static_cast<unsigned>(yuv.addY))) {}

    V Sum(V pixels) const {
        return accumulate16(accumulate16(add, blue_red(pixels), br), green_alpha(pixels), ga);
    }
};

/// The gains of chroma. A chroma's gains sum up to nothing, so that two differences tell all:
/// U = ub (B - G) + ur (R - G), one multiplication of words for a pixel.
struct ChromaGains {
    V u, v, addU, addV;

    ChromaGains(const PixelFromRgb& yuv, int constantU, int constantV)
        : u(set32(static_cast<unsigned short>(yuv.ub) | static_cast<unsigned>(yuv.ur) << 16)),
          v(set32(static_cast<unsigned short>(yuv.vb) | static_cast<unsigned>(yuv.vr) << 16)),
          addU(set32(static_cast<unsigned>(constantU))),
          addV(set32(static_cast<unsigned>(constantV))) {}

    V SumU(V differences) const { return accumulate16(addU, differences, u); }
    V SumV(V differences) const { return accumulate16(addV, differences, v); }
};

/// A weight with both signs, for `differences`.
inline V signed_weight(int weight) {
    return set16(static_cast<short>((weight & 0xff) | -weight << 8));
}

/// B - G and R - G of each pixel as words, times the weight.
inline V differences(V pixels, V weight) {
    const V order = lanes(0, 1, 2, 1, 4, 5, 6, 5, 8, 9, 10, 9, 12, 13, 14, 13);
    return multiply_add8(shuffle8(pixels, order), weight);
}

template <class To>
inline V shift_sums(V sums) {
    return sizeof(To) == 1 ? shift_right_signed32<15>(sums) : shift_right_signed32<13>(sums);
}

template <class To>
inline V shift_pair_sums(V sums) {
    return sizeof(To) == 1 ? shift_right_signed32<19>(sums) : shift_right_signed32<17>(sums);
}

inline V clamp10(V words) {
    return max_signed16(min_signed16(words, set16(1023)), zero());
}

/// kBytes codes from four vectors of double words in the order of the pixels.
inline void store_codes(PixelByte* to, V a, V b, V c, V d) {
    store(to, narrow_pixels(a, b, c, d));
}

inline void store_codes(PixelWord* to, V a, V b, V c, V d) {
    store(to, clamp10(order_packed_words(pack_signed32(a, b))));
    store(to + kWords, clamp10(order_packed_words(pack_signed32(c, d))));
}

template <class To>
inline void store_luma(const PixelByte* from, To* to, const LumaGains& gains) {
    V sums[4];
    for (int i = 0; i < 4; ++i) sums[i] = shift_sums<To>(gains.Sum(load(from + i * kBytes)));
    store_codes(to, sums[0], sums[1], sums[2], sums[3]);
}

struct BgraToLumaRow {
    const PixelFromRgb& yuv;
    const PixelByte* from;
    PixelByte* y;
    const LumaGains luma{yuv};

    void Block(int x) const { store_luma(from + 4 * x, y + x, luma); }
    void Tail(int x, int n) const { Plain::BgraToLuma(yuv, from, y, x, n); }
};

/// Pixels x - 1, x, ...; the row goes on to the left as its first pixel.
inline V load_left(const PixelByte* row, int x) {
    return x == 0 ? repeat_first_pixel(load(row)) : load(row + 4 * (x - 1));
}

/// kBytes pixels of one row, or of two that are mixed, as weighted differences: Load gives the ones
/// from x on, LoadLeft those from x - 1 on.
struct OneRow {
    const PixelByte* row;
    V weight;

    V Load(int x) const { return differences(load(row + 4 * x), weight); }
    V LoadLeft(int x) const { return differences(load_left(row, x), weight); }
};

struct TwoRows {
    OneRow near, far;

    V Load(int x) const { return add16(near.Load(x), far.Load(x)); }
    V LoadLeft(int x) const { return add16(near.LoadLeft(x), far.LoadLeft(x)); }
};

/// Differences weighted 1-2-1 around the even pixels. Two vectors come out, each with the even
/// pixels of two that went in, lane by lane.
template <class Source>
inline Pair around_even_pixels(const Source& source, int x) {
    constexpr int kPixels = kBytes / 4;
    V pairs[4];
    V previous = source.Load(x);
    pairs[0] = add16(previous, source.LoadLeft(x));
    for (int i = 1; i < 4; ++i) {
        const V current = source.Load(x + i * kPixels);
        pairs[i] = add16(current, shift_in_pixel(previous, current));
        previous = current;
    }
    return {add16(even_pixels(pairs[0], pairs[1]), odd_pixels(pairs[0], pairs[1])),
            add16(even_pixels(pairs[2], pairs[3]), odd_pixels(pairs[2], pairs[3]))};
}

/// U and V of kBytes pixels in bytes: half a vector of U, then half a vector of V.
inline V joined_chroma(const ChromaGains& gains, Pair sums) {
    const V u = pack_signed32(shift_pair_sums<PixelByte>(gains.SumU(sums.lo)),
                              shift_pair_sums<PixelByte>(gains.SumU(sums.hi)));
    const V v = pack_signed32(shift_pair_sums<PixelByte>(gains.SumV(sums.lo)),
                              shift_pair_sums<PixelByte>(gains.SumV(sums.hi)));
    return join_chroma(pack_unsigned16(u, v));
}

inline void store_chroma(PixelByte* u, PixelByte* v, const ChromaGains& gains, Pair sums) {
    const V both = joined_chroma(gains, sums);
    store_half_lo(u, both);
    store_half_hi(v, both);
}

inline void store_chroma(PixelWord* u, PixelWord* v, const ChromaGains& gains, Pair sums) {
    const V cu = pack_signed32(shift_pair_sums<PixelWord>(gains.SumU(sums.lo)),
                               shift_pair_sums<PixelWord>(gains.SumU(sums.hi)));
    const V cv = pack_signed32(shift_pair_sums<PixelWord>(gains.SumV(sums.lo)),
                               shift_pair_sums<PixelWord>(gains.SumV(sums.hi)));
    store(u, order_pairs32(clamp10(cu)));
    store(v, order_pairs32(clamp10(cv)));
}

template <class To>
struct BgraTo422Row {
    const PixelFromRgb& yuv;
    const PixelByte* from;
    To *y, *u, *v;
    const LumaGains luma{yuv};
    const ChromaGains chroma{yuv, yuv.addPairU, yuv.addPairV};
    const OneRow source{from, signed_weight(4)};

    void Block(int x) const {
        store_luma(from + 4 * x, y + x, luma);
        store_chroma(u + x / 2, v + x / 2, chroma, around_even_pixels(source, x));
    }
    void Tail(int x, int n) const { Plain::BgraTo422(yuv, from, y, u, v, x, n); }
};

struct BgraTo444Row {
    const PixelFromRgb& yuv;
    const PixelByte* from;
    PixelWord *y, *u, *v;
    const LumaGains luma{yuv};
    const ChromaGains chroma{yuv, yuv.addU, yuv.addV};

    void Block(int x) const {
        store_luma(from + 4 * x, y + x, luma);
        V cu[4], cv[4];
        for (int i = 0; i < 4; ++i) {
            const V pair = differences(load(from + 4 * x + i * kBytes), signed_weight(1));
            cu[i] = shift_sums<PixelWord>(chroma.SumU(pair));
            cv[i] = shift_sums<PixelWord>(chroma.SumV(pair));
        }
        store_codes(u + x, cu[0], cu[1], cu[2], cu[3]);
        store_codes(v + x, cv[0], cv[1], cv[2], cv[3]);
    }
    void Tail(int x, int n) const { Plain::BgraTo444(yuv, from, y, u, v, x, n); }
};

template <bool kInterleaved>
struct BgraTo420Row {
    const PixelFromRgb& yuv;
    PixelMix mix;
    const PixelByte *row0, *row1;
    PixelByte *y0, *y1, *u, *v;
    const LumaGains luma{yuv};
    const ChromaGains chroma{yuv, yuv.addPairU, yuv.addPairV};
    const TwoRows source{{row0, signed_weight(mix.near / 2)}, {row1, signed_weight(mix.far / 2)}};

    void Block(int x) const {
        store_luma(row0 + 4 * x, y0 + x, luma);
        store_luma(row1 + 4 * x, y1 + x, luma);
        const Pair sums = around_even_pixels(source, x);
        if (kInterleaved) {
            store(u + x, merge_joined(joined_chroma(chroma, sums)));
        } else {
            store_chroma(u + x / 2, v + x / 2, chroma, sums);
        }
    }
    void Tail(int x, int n) const {
        if (kInterleaved) {
            Plain::BgraToNv12(yuv, mix, row0, row1, y0, y1, u, x, n);
        } else {
            Plain::BgraTo420(yuv, mix, row0, row1, y0, y1, u, v, x, n);
        }
    }
};

// ---- the table

template <class Row>
void run_row(const PixelByte* from, PixelByte* to, int n) {
    sweep(Row{from, to}, n);
}

void map_bgra(const PixelMap& map, const PixelByte* from, PixelByte* to, int n) {
    sweep(MapBgraRow{map, from, to}, n);
}

template <int kLuma>
void unpack(const PixelByte* from, PixelByte* y, PixelByte* u, PixelByte* v, int n) {
    sweep(UnpackRow<kLuma>{from, y, u, v}, n);
}

template <int kLuma>
void unpack_luma(const PixelByte* from, PixelByte* y, int n) {
    sweep(UnpackLumaRow<kLuma>{from, y}, n);
}

template <int kLuma>
void unpack_to_420(PixelMix mix, const PixelByte* row0, const PixelByte* row1, PixelByte* y0,
                   PixelByte* y1, PixelByte* u, PixelByte* v, int n) {
    if (mix.near == mix.far) {
        sweep(UnpackTo420Row<kLuma, true, false>{mix, row0, row1, y0, y1, u, v}, n);
    } else {
        sweep(UnpackTo420Row<kLuma, false, false>{mix, row0, row1, y0, y1, u, v}, n);
    }
}

template <int kLuma>
void unpack_to_nv12(PixelMix mix, const PixelByte* row0, const PixelByte* row1, PixelByte* y0,
                    PixelByte* y1, PixelByte* uv, int n) {
    if (mix.near == mix.far) {
        sweep(UnpackTo420Row<kLuma, true, true>{mix, row0, row1, y0, y1, uv, nullptr}, n);
    } else {
        sweep(UnpackTo420Row<kLuma, false, true>{mix, row0, row1, y0, y1, uv, nullptr}, n);
    }
}

template <int kLuma>
void pack(const PixelByte* y, const PixelByte* u, const PixelByte* v, PixelByte* to, int n) {
    sweep(PackRow<kLuma>{y, u, v, to}, n);
}

void split_uv(const PixelByte* uv, PixelByte* u, PixelByte* v, int n) {
    sweep(SplitUvRow{uv, u, v}, n);
}

void merge_uv(const PixelByte* u, const PixelByte* v, PixelByte* uv, int n) {
    sweep(MergeUvRow{u, v, uv}, n);
}

void mix_bytes(PixelMix mix, const PixelByte* near, const PixelByte* far, PixelByte* to, int n) {
    if (mix.near == mix.far) {
        sweep(MixBytesRow<true>{mix, near, far, to}, n);
    } else {
        sweep(MixBytesRow<false>{mix, near, far, to}, n);
    }
}

template <class From>
void mix_to_wide(PixelMix mix, const void* near, const void* far, PixelWord* wide, int n) {
    sweep(MixToWideRow<From>{mix, static_cast<const From*>(near), static_cast<const From*>(far),
                             wide},
          n);
}

template <class From, class To>
void map_row(const PixelMap& map, const void* from, void* to, int n) {
    sweep(MapRow<From, To>{map, static_cast<const From*>(from), static_cast<To*>(to)}, n);
}

template <class To>
void narrow(const PixelMap& map, const PixelWord* wide, void* to, int n) {
    sweep(NarrowRow<To>{map, wide, static_cast<To*>(to)}, n);
}

template <class To>
void luma_matrix(const PixelLumaMatrix& matrix, const PixelWord* y, const PixelWord* u,
                 const PixelWord* v, void* to, int n) {
    sweep(LumaMatrixRow<To>{matrix, y, u, v, static_cast<To*>(to)}, n);
}

template <class To>
void chroma_matrix(const PixelChromaMatrix& matrix, const PixelWord* u, const PixelWord* v,
                   void* toU, void* toV, int n) {
    sweep(ChromaMatrixRow<To>{matrix, u, v, static_cast<To*>(toU), static_cast<To*>(toV)}, n);
}

void double_wide(const PixelWord* half, PixelWord* full, int n) {
    sweep(DoubleWideRow{half, full}, n);
}

void halve_wide(const PixelWord* full, PixelWord* half, int n) {
    sweep(HalveWideRow{full, half}, n);
}

template <class Luma>
void to_rv16(const PixelToRgb& rgb, const void* y, const PixelWord* u, const PixelWord* v,
             PixelByte* to, int n) {
    sweep(ToRv16Row<Luma>{rgb, static_cast<const Luma*>(y), u, v, to}, n);
}

template <class Luma>
void to_bgra(const PixelToRgb& rgb, const void* y, const PixelWord* u, const PixelWord* v,
             PixelByte* to, int n) {
    sweep(ToBgraRow<Luma, true>{rgb, static_cast<const Luma*>(y), u, v, to}, n);
}

void to_bgra_full(const PixelToRgb& rgb, const PixelWord* y, const PixelWord* u, const PixelWord* v,
                  PixelByte* to, int n) {
    sweep(ToBgraRow<PixelWord, false>{rgb, y, u, v, to}, n);
}

void bgra_to_luma(const PixelFromRgb& yuv, const PixelByte* from, PixelByte* y, int n) {
    sweep(BgraToLumaRow{yuv, from, y}, n);
}

template <class To>
void bgra_to_422(const PixelFromRgb& yuv, const PixelByte* from, void* y, void* u, void* v, int n) {
    sweep(
        BgraTo422Row<To>{yuv, from, static_cast<To*>(y), static_cast<To*>(u), static_cast<To*>(v)},
        n);
}

void bgra_to_444(const PixelFromRgb& yuv, const PixelByte* from, PixelWord* y, PixelWord* u,
                 PixelWord* v, int n) {
    sweep(BgraTo444Row{yuv, from, y, u, v}, n);
}

void bgra_to_420(const PixelFromRgb& yuv, PixelMix mix, const PixelByte* row0,
                 const PixelByte* row1, PixelByte* y0, PixelByte* y1, PixelByte* u, PixelByte* v,
                 int n) {
    sweep(BgraTo420Row<false>{yuv, mix, row0, row1, y0, y1, u, v}, n);
}

void bgra_to_nv12(const PixelFromRgb& yuv, PixelMix mix, const PixelByte* row0,
                  const PixelByte* row1, PixelByte* y0, PixelByte* y1, PixelByte* uv, int n) {
    sweep(BgraTo420Row<true>{yuv, mix, row0, row1, y0, y1, uv, nullptr}, n);
}

constexpr PixelKernels kTable = {
    .name = kName,
    .rv24ToBgra = run_row<Rv24ToBgraRow>,
    .rv16ToBgra = run_row<Rv16ToBgraRow>,
    .rgb2ToBgra = run_row<Rgb2ToBgraRow>,
    .greyToBgra = run_row<GreyToBgraRow>,
    .bgraToRv24 = run_row<BgraToRv24Row>,
    .bgraToRv16 = run_row<BgraToRv16Row>,
    .bgraToRgb2 = run_row<BgraToRgb2Row>,
    .mapBgra = map_bgra,
    .unpack = {unpack<1>, unpack<0>},
    .unpackLuma = {unpack_luma<1>, unpack_luma<0>},
    .unpackTo420 = {unpack_to_420<1>, unpack_to_420<0>},
    .unpackToNv12 = {unpack_to_nv12<1>, unpack_to_nv12<0>},
    .pack = {pack<1>, pack<0>},
    .swapBytes = run_row<SwapBytesRow>,
    .splitUv = split_uv,
    .mergeUv = merge_uv,
    .mixBytes = mix_bytes,
    .mixToWide = {mix_to_wide<PixelByte>, mix_to_wide<PixelWord>},
    .map = {{map_row<PixelByte, PixelByte>, map_row<PixelByte, PixelWord>},
            {map_row<PixelWord, PixelByte>, map_row<PixelWord, PixelWord>}},
    .narrow = {narrow<PixelByte>, narrow<PixelWord>},
    .lumaMatrix = {luma_matrix<PixelByte>, luma_matrix<PixelWord>},
    .chromaMatrix = {chroma_matrix<PixelByte>, chroma_matrix<PixelWord>},
    .doubleWide = double_wide,
    .halveWide = halve_wide,
    .toBgraHalf = {to_bgra<PixelByte>, to_bgra<PixelWord>},
    .toRv16Half = {to_rv16<PixelByte>, to_rv16<PixelWord>},
    .toBgraFull = to_bgra_full,
    .bgraToLuma = bgra_to_luma,
    .bgraTo422 = {bgra_to_422<PixelByte>, bgra_to_422<PixelWord>},
    .bgraTo444 = bgra_to_444,
    .bgraTo420 = bgra_to_420,
    .bgraToNv12 = bgra_to_nv12,
};
