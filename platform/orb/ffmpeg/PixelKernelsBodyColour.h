#pragma once

// Continues PixelKernelsBody.h under the same rules: what goes between red, green and blue and Y, U
// and V, and the table of all operations.

// ---- Y, U and V to BGRA

template <class Luma, bool kHalf>
struct ToBgraRow {
    const PixelToRgb& rgb;
    const Luma* y;
    const PixelWord *u, *v;
    PixelByte* to;

    /// What chroma contributes to blue, green and red, constants included.
    struct Share {
        V b, g, r;
    };

    void Block(int x) const {
        Share lo, hi;
        if constexpr (kHalf) {
            const V u0 = load(u + x / 2), v0 = load(v + x / 2);
            const V u1 = average16(u0, load(u + x / 2 + 1));
            const V v1 = average16(v0, load(v + x / 2 + 1));
            const Share even = share(u0, v0), odd = share(u1, v1);
            lo = {unpack_lo16(even.b, odd.b), unpack_lo16(even.g, odd.g),
                  unpack_lo16(even.r, odd.r)};
            hi = {unpack_hi16(even.b, odd.b), unpack_hi16(even.g, odd.g),
                  unpack_hi16(even.r, odd.r)};
        } else {
            const Pair pu = load_words(u + x), pv = load_words(v + x);
            lo = share(pu.lo, pv.lo);
            hi = share(pu.hi, pv.hi);
        }
        const Pair wide = load_wide(y + x);
        const V lumaLo = multiply_high16(wide.lo, set16(rgb.y));
        const V lumaHi = multiply_high16(wide.hi, set16(rgb.y));
        store_bgra(to + 4 * x, code(lumaLo, lumaHi, lo.b, hi.b), code(lumaLo, lumaHi, lo.g, hi.g),
                   code(lumaLo, lumaHi, lo.r, hi.r), set16(-1));
    }
    void Tail(int x, int n) const { Plain::ToBgra<Luma, kHalf>(rgb, y, u, v, to, x, n); }

    Share share(V cu, V cv) const {
        const V g = add16(multiply_high16(cu, set16(rgb.ug)), multiply_high16(cv, set16(rgb.vg)));
        return {add16(multiply_high16(cu, set16(rgb.ub)), set16(rgb.addB)),
                add16(g, set16(rgb.addG)),
                add16(multiply_high16(cv, set16(rgb.vr)), set16(rgb.addR))};
    }
    static V code(V lumaLo, V lumaHi, V lo, V hi) {
        return pack_unsigned16(shift_right_signed16<5>(add16(lumaLo, lo)),
                               shift_right_signed16<5>(add16(lumaHi, hi)));
    }
};

// ---- BGRA to Y, U and V

/// The gains of a component for blue and red, and for green, as words of a pixel.
struct Gains {
    V br, ga, bgra;

    Gains(short b, short g, short r)
        : br(set32(static_cast<unsigned short>(b) | static_cast<unsigned>(r) << 16)),
          ga(set32(static_cast<unsigned short>(g))),
          bgra(set64(b, g, r, 0)) {}
};

/// One sum a pixel.
inline V pixel_sum(V pixels, const Gains& gains) {
    return add32(multiply_add16(blue_red(pixels), gains.br),
                 multiply_add16(green_alpha(pixels), gains.ga));
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
inline void store_component(const PixelByte* from, To* to, const Gains& gains, V add) {
    V sums[4];
    for (int i = 0; i < 4; ++i) {
        sums[i] = shift_sums<To>(add32(pixel_sum(load(from + i * kBytes), gains), add));
    }
    store_codes(to, sums[0], sums[1], sums[2], sums[3]);
}

struct BgraToLumaRow {
    const PixelFromRgb& yuv;
    const PixelByte* from;
    PixelByte* y;
    const Gains luma{yuv.yb, yuv.yg, yuv.yr};

    void Block(int x) const { store_component(from + 4 * x, y + x, luma, set32(yuv.addY)); }
    void Tail(int x, int n) const { Plain::BgraToLuma(yuv, from, y, x, n); }
};

/// Each lane's pixels in pairs, component by component: B0 B1 G0 G1 R0 R1 A0 A1 B2 B3 ...
inline V pair_up(V pixels) {
    return shuffle8(pixels, lanes(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15));
}

/// 1-2-1 around the even pixels of a vector, as B, G, R, A words: the pixel with its right
/// neighbour and the pixel with its left one. The row goes on to the left as its first pixel.
inline V neighbours(const PixelByte* row, int x, V weights) {
    const PixelByte* p = row + 4 * x;
    const V right = pair_up(load(p));
    const V left = pair_up(x == 0 ? repeat_first_pixel(load(row)) : load(p - 4));
    return add16(multiply_add8(right, weights), multiply_add8(left, weights));
}

inline V both_weights(int weight) {
    return set16(static_cast<short>(weight | weight << 8));
}

/// The chroma of sums over neighbours: [U U V V] in each lane.
struct ChromaGains {
    Gains u, v;
    V add;

    explicit ChromaGains(const PixelFromRgb& yuv)
        : u(yuv.ub, yuv.ug, yuv.ur),
          v(yuv.vb, yuv.vg, yuv.vr),
          add(set128(yuv.addPairU, yuv.addPairU, yuv.addPairV, yuv.addPairV)) {}

    V Sum(V words) const {
        return add32(add_pairs32(multiply_add16(words, u.bgra), multiply_add16(words, v.bgra)),
                     add);
    }
};

inline void store_chroma(PixelByte* u, PixelByte* v, V a, V b, V c, V d) {
    const V both =
        join_split(split_pairs32(pack_signed32(a, b)), split_pairs32(pack_signed32(c, d)));
    store_half_lo(u, both);
    store_half_hi(v, both);
}

inline void store_chroma(PixelWord* u, PixelWord* v, V a, V b, V c, V d) {
    const V first = clamp10(split_pairs32(pack_signed32(a, b)));
    const V second = clamp10(split_pairs32(pack_signed32(c, d)));
    store_half_lo(u, first);
    store_half_hi(v, first);
    store_half_lo(u + kWords / 2, second);
    store_half_hi(v + kWords / 2, second);
}

template <class To>
struct BgraTo422Row {
    const PixelFromRgb& yuv;
    const PixelByte* from;
    To *y, *u, *v;
    const Gains luma{yuv.yb, yuv.yg, yuv.yr};
    const ChromaGains chroma{yuv};

    void Block(int x) const {
        store_component(from + 4 * x, y + x, luma, set32(yuv.addY));
        const V weights = both_weights(4);
        V sums[4];
        for (int i = 0; i < 4; ++i) {
            const V words = neighbours(from, x + i * (kBytes / 4), weights);
            sums[i] = shift_pair_sums<To>(chroma.Sum(words));
        }
        store_chroma(u + x / 2, v + x / 2, sums[0], sums[1], sums[2], sums[3]);
    }
    void Tail(int x, int n) const { Plain::BgraTo422(yuv, from, y, u, v, x, n); }
};

struct BgraTo444Row {
    const PixelFromRgb& yuv;
    const PixelByte* from;
    PixelWord *y, *u, *v;
    const Gains gy{yuv.yb, yuv.yg, yuv.yr};
    const Gains gu{yuv.ub, yuv.ug, yuv.ur};
    const Gains gv{yuv.vb, yuv.vg, yuv.vr};

    void Block(int x) const {
        store_component(from + 4 * x, y + x, gy, set32(yuv.addY));
        store_component(from + 4 * x, u + x, gu, set32(yuv.addU));
        store_component(from + 4 * x, v + x, gv, set32(yuv.addV));
    }
    void Tail(int x, int n) const { Plain::BgraTo444(yuv, from, y, u, v, x, n); }
};

template <bool kTwoRows>
struct BgraTo420Row {
    const PixelFromRgb& yuv;
    PixelMix mix;
    const PixelByte *row0, *row1;
    PixelByte *y0, *y1, *u, *v;
    const Gains luma{yuv.yb, yuv.yg, yuv.yr};
    const ChromaGains chroma{yuv};

    void Block(int x) const {
        store_component(row0 + 4 * x, y0 + x, luma, set32(yuv.addY));
        if (kTwoRows) store_component(row1 + 4 * x, y1 + x, luma, set32(yuv.addY));
        const V near = both_weights(mix.near / 2), far = both_weights(mix.far / 2);
        V sums[4];
        for (int i = 0; i < 4; ++i) {
            const int at = x + i * (kBytes / 4);
            const V words = add16(neighbours(row0, at, near), neighbours(row1, at, far));
            sums[i] = shift_pair_sums<PixelByte>(chroma.Sum(words));
        }
        store_chroma(u + x / 2, v + x / 2, sums[0], sums[1], sums[2], sums[3]);
    }
    void Tail(int x, int n) const { Plain::BgraTo420(yuv, mix, row0, row1, y0, y1, u, v, x, n); }
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
    sweep(MixBytesRow{mix, near, far, to}, n);
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
    if (y1) {
        sweep(BgraTo420Row<true>{yuv, mix, row0, row1, y0, y1, u, v}, n);
    } else {
        sweep(BgraTo420Row<false>{yuv, mix, row0, row1, y0, y1, u, v}, n);
    }
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
    .unpackUyvy = unpack<1>,
    .unpackYuyv = unpack<0>,
    .packUyvy = pack<1>,
    .packYuyv = pack<0>,
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
    .toBgraFull = to_bgra_full,
    .bgraToLuma = bgra_to_luma,
    .bgraTo422 = {bgra_to_422<PixelByte>, bgra_to_422<PixelWord>},
    .bgraTo444 = bgra_to_444,
    .bgraTo420 = bgra_to_420,
};
