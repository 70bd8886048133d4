#include "PixelColour.h"

namespace Quillon::Orb {

namespace {

/// value' = gain * value, without offsets: between the normalised components of two pictures.
struct Plain {
    double gain[3][3];
};

Plain rgb_to_yuv(PixelMatrix matrix) {
    const auto [kr, kb] = WeightsOf(matrix);
    const double kg = 1.0 - kr - kb;
    const double u = 0.5 / (1.0 - kb);
    const double v = 0.5 / (1.0 - kr);
    // columns: blue, green, red, the order of 'BGRA'
    return {{{kb, kg, kr}, {(1.0 - kb) * u, -kg * u, -kr * u}, {-kb * v, -kg * v, (1.0 - kr) * v}}};
}

Plain yuv_to_rgb(PixelMatrix matrix) {
    const auto [kr, kb] = WeightsOf(matrix);
    const double kg = 1.0 - kr - kb;
    const double blue = 2.0 * (1.0 - kb);
    const double red = 2.0 * (1.0 - kr);
    return {{{1.0, blue, 0.0}, {1.0, -kb * blue / kg, -kr * red / kg}, {1.0, 0.0, red}}};
}

Plain product(const Plain& left, const Plain& right) {
    Plain result{};
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            for (int i = 0; i < 3; ++i) {
                result.gain[row][column] += left.gain[row][i] * right.gain[i][column];
            }
        }
    }
    return result;
}

/// Puts the scales of both sides around the plain matrix; codes in units of 8-bit codes.
ColourTransform between(const Plain& matrix, const PixelScale (&from)[3], int fromBits,
                        const PixelScale (&to)[3], int toBits) {
    const double fromUnit = fromBits == 10 ? 0.25 : 1.0;
    const double toUnit = toBits == 10 ? 0.25 : 1.0;
    ColourTransform result{};
    for (int row = 0; row < 3; ++row) {
        result.from[row] = from[row].offset * fromUnit;
        result.to[row] = to[row].offset * toUnit;
        for (int column = 0; column < 3; ++column) {
            result.gain[row][column] =
                matrix.gain[row][column] * to[row].span * toUnit / (from[column].span * fromUnit);
        }
    }
    return result;
}

}  // namespace

PixelScale LumaScale(PixelRange range, int bits) {
    const double unit = bits == 10 ? 4.0 : 1.0;
    if (range == PixelRange::Limited) return {16.0 * unit, 219.0 * unit};
    return {0.0, 256.0 * unit - 1.0};
}

PixelScale ChromaScale(PixelRange range, int bits) {
    const double unit = bits == 10 ? 4.0 : 1.0;
    if (range == PixelRange::Limited) return {128.0 * unit, 224.0 * unit};
    return {128.0 * unit, 256.0 * unit - 1.0};
}

PixelWeights WeightsOf(PixelMatrix matrix) {
    if (matrix == PixelMatrix::Bt601) return {0.299, 0.114};
    return {0.2126, 0.0722};
}

ColourTransform RgbToYuvTransform(PixelRange rgb, PixelColour yuv, int yuvBits) {
    const PixelScale luma = LumaScale(yuv.range, yuvBits);
    const PixelScale chroma = ChromaScale(yuv.range, yuvBits);
    const PixelScale code = LumaScale(rgb, 8);
    return between(rgb_to_yuv(yuv.matrix), {code, code, code}, 8, {luma, chroma, chroma}, yuvBits);
}

ColourTransform YuvToRgbTransform(PixelColour yuv, int yuvBits, PixelRange rgb) {
    const PixelScale luma = LumaScale(yuv.range, yuvBits);
    const PixelScale chroma = ChromaScale(yuv.range, yuvBits);
    const PixelScale code = LumaScale(rgb, 8);
    return between(yuv_to_rgb(yuv.matrix), {luma, chroma, chroma}, yuvBits, {code, code, code}, 8);
}

ColourTransform YuvToYuvTransform(PixelColour from, int fromBits, PixelColour to, int toBits) {
    Plain matrix{{{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}}};
    if (from.matrix != to.matrix) matrix = product(rgb_to_yuv(to.matrix), yuv_to_rgb(from.matrix));
    const PixelScale luma = LumaScale(from.range, fromBits);
    const PixelScale chroma = ChromaScale(from.range, fromBits);
    const PixelScale lumaTo = LumaScale(to.range, toBits);
    const PixelScale chromaTo = ChromaScale(to.range, toBits);
    return between(matrix, {luma, chroma, chroma}, fromBits, {lumaTo, chromaTo, chromaTo}, toBits);
}

}  // namespace Quillon::Orb
