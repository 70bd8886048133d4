#pragma once

// The vectorised row operations, written once for every vector width. Each
// PixelKernels<Set>.cpp switches its instruction set on, defines the vector type V with the
// operations listed there, and includes this inside a namespace of its own. Nothing of the standard
// library may be used below that point: a shared inline function compiled with these instructions
// could be picked by the linker for processors that lack them.
//
// Vectors consist of lanes of 16 bytes, and unpacking and packing work lane by lane. "Lane order"
// is what unpacking gives: `lo` has the first half of each lane's pixels, `hi` the second. Packing
// undoes it, so most operations never pay for crossing lanes.

constexpr int kBytes = static_cast<int>(sizeof(V));
constexpr int kWords = kBytes / 2;

// ---- loads and stores of codes as wide words in lane order, kBytes codes at a time

/// Words of 10 bits; words that are no codes count as the largest.
inline V legal10(V words) {
    return min_unsigned16(words, set16(1023));
}

inline Pair load_words(const PixelWord* from) {
    return to_lanes(load(from), load(from + kWords));
}

inline void store_words(PixelWord* to, Pair words) {
    const Pair linear = to_linear(words);
    store(to, linear.lo);
    store(to + kWords, linear.hi);
}

inline Pair load_wide(const PixelByte* from) {
    const V codes = load(from);
    return {shift_right16<1>(unpack_lo8(zero(), codes)),
            shift_right16<1>(unpack_hi8(zero(), codes))};
}

inline Pair load_wide(const PixelWord* from) {
    const Pair codes = load_words(from);
    return {shift_left16<5>(legal10(codes.lo)), shift_left16<5>(legal10(codes.hi))};
}

/// From the scale of PixelMap, `add` already in.
inline void store_mapped(PixelByte* to, Pair sums) {
    store(to, pack_unsigned16(shift_right_signed16<6>(sums.lo), shift_right_signed16<6>(sums.hi)));
}

inline void store_mapped(PixelWord* to, Pair sums) {
    const V top = set16(1023);
    const V lo = max_signed16(min_signed16(shift_right_signed16<4>(sums.lo), top), zero());
    const V hi = max_signed16(min_signed16(shift_right_signed16<4>(sums.hi), top), zero());
    store_words(to, {lo, hi});
}

// ---- running over a row

/// Calls Block for kBytes pixels at a time, once more for the last ones (overlapping what is done
/// already; rows never alias), and leaves what is less than a block, or odd, to the plain
/// operation.
template <class Kernel>
inline void sweep(const Kernel& kernel, int n) {
    int x = 0;
    for (; x + kBytes <= n; x += kBytes) kernel.Block(x);
    if (x == n) return;
    if (x > 0) {
        const int last = (n - kBytes) & ~1;
        kernel.Block(last);
        x = last + kBytes;
    }
    if (x < n) kernel.Tail(x, n);
}

// ---- red, green and blue

/// Stores pixels from their components, kBytes of each.
inline void store_bgra(PixelByte* to, V b, V g, V r, V a) {
    const V bgLo = unpack_lo8(b, g), bgHi = unpack_hi8(b, g);
    const V raLo = unpack_lo8(r, a), raHi = unpack_hi8(r, a);
    store_lanes(to, unpack_lo16(bgLo, raLo), unpack_hi16(bgLo, raLo), unpack_lo16(bgHi, raHi),
                unpack_hi16(bgHi, raHi));
}

/// Four vectors of double words with a byte each, as bytes in the order of the pixels.
inline V narrow_pixels(V d0, V d1, V d2, V d3) {
    return order_packed_pixels(pack_unsigned16(pack_signed32(d0, d1), pack_signed32(d2, d3)));
}

struct Rv24ToBgraRow {
    const PixelByte* from;
    PixelByte* to;

    void Block(int x) const {
        constexpr unsigned char kNone = 0x80;
        const V spread = lanes(0, 1, 2, kNone, 3, 4, 5, kNone, 6, 7, 8, kNone, 9, 10, 11, kNone);
        for (int i = 0; i < 4; ++i) {
            const V three = load_three_quarters(from + 3 * x + i * (kBytes / 4 * 3));
            store(to + 4 * x + i * kBytes, or_(shuffle8(three, spread), set32(0xff000000u)));
        }
    }
    void Tail(int x, int n) const { Plain::Rv24ToBgra(from, to, x, n); }
};

struct BgraToRv24Row {
    const PixelByte* from;
    PixelByte* to;

    void Block(int x) const {
        const V close = lanes(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 0, 0, 0, 0);
        for (int i = 0; i < 4; ++i) {
            const V four = shuffle8(load(from + 4 * x + i * kBytes), close);
            store_three_quarters(to + 3 * x + i * (kBytes / 4 * 3), four);
        }
    }
    void Tail(int x, int n) const { Plain::BgraToRv24(from, to, x, n); }
};

struct Rv16ToBgraRow {
    const PixelByte* from;
    PixelByte* to;

    void Block(int x) const {
        const Pair p = to_lanes(load(from + 2 * x), load(from + 2 * x + kBytes));
        const V b = pack_unsigned16(five(shift_left16<7>(p.lo)), five(shift_left16<7>(p.hi)));
        const V g = pack_unsigned16(six(p.lo), six(p.hi));
        const V r = pack_unsigned16(five(shift_right16<4>(p.lo)), five(shift_right16<4>(p.hi)));
        store_bgra(to + 4 * x, b, g, r, set16(-1));
    }
    void Tail(int x, int n) const { Plain::Rv16ToBgra(from, to, x, n); }

    /// Five bits that stand at bit 7: times 255 / 31, rounded.
    static V five(V shifted) { return multiply_high16(and_(shifted, set16(31 << 7)), set16(2106)); }
    static V six(V pixel) {
        const V code = and_(shift_right16<5>(pixel), set16(63));
        return shift_right16<6>(add16(multiply_low16(code, set16(259)), set16(33)));
    }
};

struct Rgb2ToBgraRow {
    const PixelByte* from;
    PixelByte* to;

    void Block(int x) const {
        const V pixels = load(from + x);
        const V three = lanes(0, 36, 73, 109, 146, 182, 219, 255, 0, 0, 0, 0, 0, 0, 0, 0);
        const V two = lanes(0, 85, 170, 255, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
        const V r = shuffle8(three, and_(shift_right16<5>(pixels), set16(0x0707)));
        const V g = shuffle8(three, and_(shift_right16<2>(pixels), set16(0x0707)));
        const V b = shuffle8(two, and_(pixels, set16(0x0303)));
        store_bgra(to + 4 * x, b, g, r, set16(-1));
    }
    void Tail(int x, int n) const { Plain::Rgb2ToBgra(from, to, x, n); }
};

struct GreyToBgraRow {
    const PixelByte* from;
    PixelByte* to;

    void Block(int x) const {
        const V grey = load(from + x);
        store_bgra(to + 4 * x, grey, grey, grey, set16(-1));
    }
    void Tail(int x, int n) const { Plain::GreyToBgra(from, to, x, n); }
};

/// Blue and red of a vector of pixels as words, then green and alpha.
inline V blue_red(V pixels) {
    return and_(pixels, set16(0x00ff));
}
inline V green_alpha(V pixels) {
    return shift_right16<8>(pixels);
}

struct BgraToRv16Row {
    const PixelByte* from;
    PixelByte* to;

    void Block(int x) const {
        for (int half = 0; half < 2; ++half) {
            const PixelByte* p = from + 4 * x + 2 * kBytes * half;
            const V words = pack_unsigned32(reduced(load(p)), reduced(load(p + kBytes)));
            store(to + 2 * x + kBytes * half, order_packed_words(words));
        }
    }
    void Tail(int x, int n) const { Plain::BgraToRv16(from, to, x, n); }

    static V reduced(V pixels) {
        const V br =
            shift_right16<11>(add16(multiply_low16(blue_red(pixels), set16(249)), set16(1014)));
        const V ga =
            shift_right16<10>(add16(multiply_low16(green_alpha(pixels), set16(253)), set16(505)));
        return add32(multiply_add16(br, set32(2048 << 16 | 1)), multiply_add16(ga, set32(32)));
    }
};

struct BgraToRgb2Row {
    const PixelByte* from;
    PixelByte* to;

    void Block(int x) const {
        const PixelByte* p = from + 4 * x;
        store(to + x, narrow_pixels(reduced(load(p)), reduced(load(p + kBytes)),
                                    reduced(load(p + 2 * kBytes)), reduced(load(p + 3 * kBytes))));
    }
    void Tail(int x, int n) const { Plain::BgraToRgb2(from, to, x, n); }

    static V reduced(V pixels) {
        const V br = blue_red(pixels);
        const V b = shift_right16<8>(add16(multiply_low16(br, set32(3)), set32(129)));
        const V r =
            shift_right16<13>(add16(multiply_low16(br, set32(225 << 16)), set32(4060 << 16)));
        const V g =
            shift_right16<13>(add16(multiply_low16(green_alpha(pixels), set32(225)), set32(4060)));
        const V weighted = multiply_add16(or_(b, r), set32(32 << 16 | 1));
        return add32(weighted, multiply_add16(g, set32(4)));
    }
};

struct MapBgraRow {
    const PixelMap& map;
    const PixelByte* from;
    PixelByte* to;

    void Block(int x) const {
        // A gain of one for alpha: it comes out as it went in.
        const V gain = set64(map.gain, map.gain, map.gain, 1 << 14);
        const V add = set64(map.add, map.add, map.add, 32);
        for (int i = 0; i < 4; ++i) {
            const int at = 4 * x + i * kBytes;
            const Pair p = load_wide(from + at);
            store_mapped(to + at, {add16(multiply_high16(p.lo, gain), add),
                                   add16(multiply_high16(p.hi, gain), add)});
        }
    }
    void Tail(int x, int n) const { Plain::MapBgra(map, from, to, x, n); }
};

// ---- shuffles

/// Bytes 0, 2, 4, ... and 1, 3, 5, ... of two vectors.
inline Pair split_bytes(const PixelByte* from) {
    const V a = load(from), b = load(from + kBytes);
    const V even = pack_unsigned16(and_(a, set16(0x00ff)), and_(b, set16(0x00ff)));
    const V odd = pack_unsigned16(shift_right16<8>(a), shift_right16<8>(b));
    return {order_packed_words(even), order_packed_words(odd)};
}

/// A vector of U and V in turn as half a vector of each.
inline void store_split(PixelByte* u, PixelByte* v, V uv) {
    const V both =
        order_packed_words(pack_unsigned16(and_(uv, set16(0x00ff)), shift_right16<8>(uv)));
    store_half_lo(u, both);
    store_half_hi(v, both);
}

/// The opposite: bytes of `a` and `b` in turn, in the order of memory.
inline Pair merge_bytes(V a, V b) {
    return to_linear({unpack_lo8(a, b), unpack_hi8(a, b)});
}

template <int kLuma>
struct UnpackRow {
    const PixelByte* from;
    PixelByte *y, *u, *v;

    void Block(int x) const {
        const Pair p = split_bytes(from + 2 * x);
        store(y + x, kLuma ? p.hi : p.lo);
        store_split(u + x / 2, v + x / 2, kLuma ? p.lo : p.hi);
    }
    void Tail(int x, int n) const { Plain::Unpack(kLuma, from, y, u, v, x, n); }
};

template <int kLuma>
struct UnpackLumaRow {
    const PixelByte* from;
    PixelByte* y;

    void Block(int x) const {
        const V a = load(from + 2 * x), b = load(from + 2 * x + kBytes);
        store(y + x, order_packed_words(pack_unsigned16(luma(a), luma(b))));
    }
    void Tail(int x, int n) const { Plain::UnpackLuma(kLuma, from, y, x, n); }

    static V luma(V pairs) { return kLuma ? shift_right16<8>(pairs) : and_(pairs, set16(0x00ff)); }
};

/// Rows of bytes in the shares of a PixelMix; even shares need no arithmetic of words.
template <bool kEven>
struct Mixer {
    const V weights;

    explicit Mixer(PixelMix mix) : weights(set16(static_cast<short>(mix.near | mix.far << 8))) {}

    V Mix(V near, V far) const {
        if (kEven) return average8(near, far);
        const V lo = add16(multiply_add8(unpack_lo8(near, far), weights), set16(4));
        const V hi = add16(multiply_add8(unpack_hi8(near, far), weights), set16(4));
        return pack_unsigned16(shift_right16<3>(lo), shift_right16<3>(hi));
    }
};

template <int kLuma, bool kEven, bool kInterleaved>
struct UnpackTo420Row {
    PixelMix mix;
    const PixelByte *row0, *row1;
    PixelByte *y0, *y1, *u, *v;
    const Mixer<kEven> mixer{mix};

    void Block(int x) const {
        const Pair p = split_bytes(row0 + 2 * x), q = split_bytes(row1 + 2 * x);
        store(y0 + x, kLuma ? p.hi : p.lo);
        store(y1 + x, kLuma ? q.hi : q.lo);
        const V chroma = mixer.Mix(kLuma ? p.lo : p.hi, kLuma ? q.lo : q.hi);
        if (kInterleaved) {
            store(u + x, chroma);
        } else {
            store_split(u + x / 2, v + x / 2, chroma);
        }
    }
    void Tail(int x, int n) const {
        if (kInterleaved) {
            Plain::UnpackToNv12(kLuma, mix, row0, row1, y0, y1, u, x, n);
        } else {
            Plain::UnpackTo420(kLuma, mix, row0, row1, y0, y1, u, v, x, n);
        }
    }
};

template <int kLuma>
struct PackRow {
    const PixelByte *y, *u, *v;
    PixelByte* to;

    void Block(int x) const {
        const V uv = merge_halves(u + x / 2, v + x / 2);
        const V luma = load(y + x);
        const Pair p = kLuma ? merge_bytes(uv, luma) : merge_bytes(luma, uv);
        store(to + 2 * x, p.lo);
        store(to + 2 * x + kBytes, p.hi);
    }
    void Tail(int x, int n) const { Plain::Pack(kLuma, y, u, v, to, x, n); }
};

struct SwapBytesRow {
    const PixelByte* from;
    PixelByte* to;

    void Block(int x) const {
        for (int i = 0; i < 2 * kBytes; i += kBytes) {
            const V p = load(from + 2 * x + i);
            store(to + 2 * x + i, or_(shift_right16<8>(p), shift_left16<8>(p)));
        }
    }
    void Tail(int x, int n) const { Plain::SwapBytes(from, to, x, n); }
};

struct SplitUvRow {
    const PixelByte* uv;
    PixelByte *u, *v;

    void Block(int x) const {
        const Pair p = split_bytes(uv + 2 * x);
        store(u + x, p.lo);
        store(v + x, p.hi);
    }
    void Tail(int x, int n) const { Plain::SplitUv(uv, u, v, x, n); }
};

struct MergeUvRow {
    const PixelByte *u, *v;
    PixelByte* uv;

    void Block(int x) const {
        const Pair p = merge_bytes(load(u + x), load(v + x));
        store(uv + 2 * x, p.lo);
        store(uv + 2 * x + kBytes, p.hi);
    }
    void Tail(int x, int n) const { Plain::MergeUv(u, v, uv, x, n); }
};

// ---- rows of one component

template <bool kEven>
struct MixBytesRow {
    PixelMix mix;
    const PixelByte *near, *far;
    PixelByte* to;
    const Mixer<kEven> mixer{mix};

    void Block(int x) const { store(to + x, mixer.Mix(load(near + x), load(far + x))); }
    void Tail(int x, int n) const { Plain::MixBytes(mix, near, far, to, x, n); }
};

template <class From>
struct MixToWideRow {
    PixelMix mix;
    const From *near, *far;
    PixelWord* wide;

    void Block(int x) const { store_words(wide + x, mixed(near + x, far + x)); }
    void Tail(int x, int n) const { Plain::MixToWide(mix, near, far, wide, x, n); }

    Pair mixed(const PixelByte* p, const PixelByte* q) const {
        const V a = load(p), b = load(q);
        const V weights = set16(static_cast<short>(mix.near | mix.far << 8));
        return {shift_left16<4>(multiply_add8(unpack_lo8(a, b), weights)),
                shift_left16<4>(multiply_add8(unpack_hi8(a, b), weights))};
    }
    Pair mixed(const PixelWord* p, const PixelWord* q) const {
        const Pair a = load_words(p), b = load_words(q);
        return {weighted(a.lo, b.lo), weighted(a.hi, b.hi)};
    }
    V weighted(V a, V b) const {
        return shift_left16<2>(
            add16(multiply_low16(legal10(a), set16(static_cast<short>(mix.near))),
                  multiply_low16(legal10(b), set16(static_cast<short>(mix.far)))));
    }
};

inline V mapped(const PixelMap& map, V wide) {
    return add16(multiply_high16(wide, set16(map.gain)), set16(map.add));
}

template <class From, class To>
struct MapRow {
    const PixelMap& map;
    const From* from;
    To* to;

    void Block(int x) const {
        const Pair p = load_wide(from + x);
        store_mapped(to + x, {mapped(map, p.lo), mapped(map, p.hi)});
    }
    void Tail(int x, int n) const { Plain::Map(map, from, to, x, n); }
};

template <class To>
struct NarrowRow {
    const PixelMap& map;
    const PixelWord* wide;
    To* to;

    void Block(int x) const {
        const Pair p = load_words(wide + x);
        store_mapped(to + x, {mapped(map, p.lo), mapped(map, p.hi)});
    }
    void Tail(int x, int n) const { Plain::Narrow(map, wide, to, x, n); }
};

template <class To>
struct LumaMatrixRow {
    const PixelLumaMatrix& matrix;
    const PixelWord *y, *u, *v;
    To* to;

    void Block(int x) const {
        const Pair py = load_words(y + x), pu = load_words(u + x), pv = load_words(v + x);
        store_mapped(to + x, {sum(py.lo, pu.lo, pv.lo), sum(py.hi, pu.hi, pv.hi)});
    }
    void Tail(int x, int n) const { Plain::LumaMatrix(matrix, y, u, v, to, x, n); }

    V sum(V py, V pu, V pv) const {
        const V luma = add16(multiply_high16(py, set16(matrix.y)), set16(matrix.add));
        return add16(luma, add16(multiply_high16(pu, set16(matrix.u)),
                                 multiply_high16(pv, set16(matrix.v))));
    }
};

template <class To>
struct ChromaMatrixRow {
    const PixelChromaMatrix& matrix;
    const PixelWord *u, *v;
    To *toU, *toV;

    void Block(int x) const {
        const Pair pu = load_words(u + x), pv = load_words(v + x);
        store_mapped(toU + x, both(pu, pv, matrix.uu, matrix.uv, matrix.addU));
        store_mapped(toV + x, both(pu, pv, matrix.vu, matrix.vv, matrix.addV));
    }
    void Tail(int x, int n) const { Plain::ChromaMatrix(matrix, u, v, toU, toV, x, n); }

    static Pair both(Pair pu, Pair pv, short gainU, short gainV, short add) {
        return {sum(pu.lo, pv.lo, gainU, gainV, add), sum(pu.hi, pv.hi, gainU, gainV, add)};
    }
    static V sum(V pu, V pv, short gainU, short gainV, short add) {
        return add16(add16(multiply_high16(pu, set16(gainU)), set16(add)),
                     multiply_high16(pv, set16(gainV)));
    }
};

struct DoubleWideRow {
    const PixelWord* half;
    PixelWord* full;

    void Block(int x) const {
        const V even = load(half + x / 2);
        const V odd = average16(even, load(half + x / 2 + 1));
        store_words(full + x, {unpack_lo16(even, odd), unpack_hi16(even, odd)});
    }
    void Tail(int x, int n) const { Plain::DoubleWide(half, full, x, n); }
};

// The first block has no neighbour on its left; the plain operation takes its place there.
struct HalveWideRow {
    const PixelWord* full;
    PixelWord* half;

    void Block(int x) const {
        if (x == 0) {
            Plain::HalveWide(full, half, 0, kBytes);
            return;
        }
        const V low = set32(0xffff);
        const V a = load(full + x), b = load(full + x + kWords);
        const V c = load(full + x - 2), d = load(full + x - 2 + kWords);
        const V even = pack_unsigned32(and_(a, low), and_(b, low));
        const V right = pack_unsigned32(shift_right32<16>(a), shift_right32<16>(b));
        const V left = pack_unsigned32(shift_right32<16>(c), shift_right32<16>(d));
        store(half + x / 2, order_packed_words(average16(average16(left, right), even)));
    }
    void Tail(int x, int n) const { Plain::HalveWide(full, half, x, n); }
};
