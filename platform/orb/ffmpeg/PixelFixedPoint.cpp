#include "PixelFixedPoint.h"

#include <cmath>

namespace Quillon::Orb {

namespace {

constexpr int kMapBits = 14;  // gains of PixelMap and the two matrices: wide * gain is code * 64
constexpr int kMapScale = 64;
constexpr int kToRgbBits = 13;  // wide * gain is code * 32
constexpr int kToRgbScale = 32;
constexpr int kFromRgbBits = 15;
constexpr int kPairWeights = 16;

int fixed(double value, int bits) {
    return static_cast<int>(std::lround(std::ldexp(value, bits)));
}

std::int16_t word(int value) {
    return static_cast<std::int16_t>(value);
}

/// The constant term of a row in units of 1/scale codes, from gains of `bits`.
int constant(const ColourTransform& transform, int row, const int (&gain)[3], int bits, int scale) {
    double sum = transform.to[row];
    for (int i = 0; i < 3; ++i) sum -= std::ldexp(gain[i], -bits) * transform.from[i];
    return static_cast<int>(std::lround(sum * scale));
}

/// Half a code of the target in units of PixelMap.
int half_of(int bits) {
    return bits == 10 ? kMapScale / 8 : kMapScale / 2;
}

/// A row of gains whose sum is right, not only each of them: green takes the difference.
void row_of_gains(const ColourTransform& transform, int row, int (&gain)[3]) {
    double total = 0.0;
    for (int i = 0; i < 3; ++i) {
        total += transform.gain[row][i];
        gain[i] = fixed(transform.gain[row][i], kFromRgbBits);
    }
    gain[1] = fixed(total, kFromRgbBits) - gain[0] - gain[2];
}

}  // namespace

PixelMap MakeMap(const ColourTransform& transform, int row, int toBits) {
    int gain[3] = {};
    gain[row] = fixed(transform.gain[row][row], kMapBits);
    return {word(gain[row]),
            word(constant(transform, row, gain, kMapBits, kMapScale) + half_of(toBits))};
}

PixelLumaMatrix MakeLumaMatrix(const ColourTransform& yuvToYuv, int toBits) {
    int gain[3];
    for (int i = 0; i < 3; ++i) gain[i] = fixed(yuvToYuv.gain[0][i], kMapBits);
    return {word(gain[0]), word(gain[1]), word(gain[2]),
            word(constant(yuvToYuv, 0, gain, kMapBits, kMapScale) + half_of(toBits))};
}

PixelChromaMatrix MakeChromaMatrix(const ColourTransform& yuvToYuv, int toBits) {
    int gain[2][3];
    int add[2];
    for (int row = 0; row < 2; ++row) {
        gain[row][0] = 0;
        for (int i = 1; i < 3; ++i) gain[row][i] = fixed(yuvToYuv.gain[row + 1][i], kMapBits);
        add[row] = constant(yuvToYuv, row + 1, gain[row], kMapBits, kMapScale) + half_of(toBits);
    }
    return {word(gain[0][1]), word(gain[0][2]), word(gain[1][1]),
            word(gain[1][2]), word(add[0]),     word(add[1])};
}

PixelToRgb MakeToRgb(const ColourTransform& yuvToRgb) {
    int gain[3][3];
    int add[3];
    for (int row = 0; row < 3; ++row) {
        for (int i = 0; i < 3; ++i) gain[row][i] = fixed(yuvToRgb.gain[row][i], kToRgbBits);
        add[row] = constant(yuvToRgb, row, gain[row], kToRgbBits, kToRgbScale) + kToRgbScale / 2;
    }
    return {word(gain[0][0]), word(gain[0][1]), word(gain[1][1]), word(gain[1][2]),
            word(gain[2][2]), word(add[0]),     word(add[1]),     word(add[2])};
}

PixelFromRgb MakeFromRgb(const ColourTransform& rgbToYuv, int toBits) {
    int gain[3][3];
    int add[3];
    for (int row = 0; row < 3; ++row) {
        row_of_gains(rgbToYuv, row, gain[row]);
        add[row] = constant(rgbToYuv, row, gain[row], kFromRgbBits, 1 << kFromRgbBits);
    }
    const int half = 1 << (toBits == 10 ? kFromRgbBits - 3 : kFromRgbBits - 1);
    PixelFromRgb yuv{};
    yuv.yb = word(gain[0][0]), yuv.yg = word(gain[0][1]), yuv.yr = word(gain[0][2]);
    yuv.ub = word(gain[1][0]), yuv.ug = word(gain[1][1]), yuv.ur = word(gain[1][2]);
    yuv.vb = word(gain[2][0]), yuv.vg = word(gain[2][1]), yuv.vr = word(gain[2][2]);
    yuv.addY = add[0] + half;
    yuv.addU = add[1] + half;
    yuv.addV = add[2] + half;
    yuv.addPairU = (add[1] + half) * kPairWeights;
    yuv.addPairV = (add[2] + half) * kPairWeights;
    return yuv;
}

}  // namespace Quillon::Orb
