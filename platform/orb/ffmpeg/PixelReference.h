#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

#include "PixelPlan.h"

/// What a conversion should give, in double precision and from first principles: components at
/// their places in the picture, one rounding at the very end. Slow and only for tests and
/// benchmarks; shares nothing with the converters but the description of formats.
namespace Quillon::Orb::Reference {

/// One component as numbers, at its own resolution.
struct Component {
    int width = 0;
    int height = 0;
    std::vector<double> values;

    void Resize(int w, int h) {
        width = w;
        height = h;
        values.assign(static_cast<std::size_t>(w) * h, 0.0);
    }
    double& At(int x, int y) { return values[static_cast<std::size_t>(y) * width + x]; }
    double At(int x, int y) const { return values[static_cast<std::size_t>(y) * width + x]; }
    double Near(int x, int y) const {
        return At(std::clamp(x, 0, width - 1), std::clamp(y, 0, height - 1));
    }
};

/// Codes as they stand in memory (red, green, blue or Y, U, V), or normalised values.
struct Picture {
    Component c[3];
};

inline int CodeBits(const PixelFormat& format, int component) {
    if (format.family != PixelFamily::Rgb) return format.bits;
    if (format.code == 'RV16') return component == 1 ? 6 : 5;
    if (format.code == 'RGB2') return component == 2 ? 2 : 3;
    return 8;
}

inline int ComponentCount(const PixelFormat& format) {
    return format.family == PixelFamily::Grey ? 1 : 3;
}

/// Where a code lies in memory: a byte or word, and the bits in it.
struct Place {
    unsigned char* address;
    int shift;
    int bits;
    int bytes;
};

inline Place PlaceOfRgb(const PixelFormat& format, unsigned char* row, int x, int c) {
    if (format.code == 'RV16')
        return {row + 2 * x, c == 0 ? 11 : c == 1 ? 5 : 0, c == 1 ? 6 : 5, 2};
    if (format.code == 'RGB2') return {row + x, c == 0 ? 5 : c == 1 ? 2 : 0, c == 2 ? 2 : 3, 1};
    return {row + format.bytesPerUnit * x + 2 - c, 0, 8, 1};
}

inline Place PlaceOf(const PixelFormat& format, const PixelImage& image, int c, int x, int y) {
    const bool packed = format.shape == PixelShape::Packed;
    const bool semi = format.shape == PixelShape::SemiPlanar;
    const int plane = packed ? 0 : semi ? std::min(c, 1) : c;
    unsigned char* row =
        image.planes[plane] + static_cast<std::ptrdiff_t>(image.strides[plane]) * y;
    if (format.family == PixelFamily::Rgb) return PlaceOfRgb(format, row, x, c);
    if (packed) {
        const int luma = format.swapped ? 0 : 1;
        const int at = c == 0 ? 2 * x + luma : 4 * x + (c == 1 ? 0 : 2) + 1 - luma;
        return {row + at, 0, 8, 1};
    }
    if (semi && c > 0) return {row + 2 * x + c - 1, 0, 8, 1};
    return {row + x * format.bytesPerUnit, 0, format.bits, format.bytesPerUnit};
}

inline int ReadCode(const Place& place) {
    int value = place.address[0];
    if (place.bytes == 2) value |= place.address[1] << 8;
    return value >> place.shift & ((1 << place.bits) - 1);
}

inline void WriteCode(const Place& place, int code) {
    int value = place.address[0];
    if (place.bytes == 2) value |= place.address[1] << 8;
    value &= ~(((1 << place.bits) - 1) << place.shift);
    value |= code << place.shift;
    place.address[0] = static_cast<unsigned char>(value);
    if (place.bytes == 2) place.address[1] = static_cast<unsigned char>(value >> 8);
}

/// The codes of a picture in memory.
inline Picture ReadCodes(const PixelFormat& format, const PixelImage& image, int width,
                         int height) {
    Picture picture;
    for (int c = 0; c < ComponentCount(format); ++c) {
        picture.c[c].Resize(c ? format.ChromaWidth(width) : width,
                            c ? format.ChromaHeight(height) : height);
        for (int y = 0; y < picture.c[c].height; ++y) {
            for (int x = 0; x < picture.c[c].width; ++x) {
                picture.c[c].At(x, y) = ReadCode(PlaceOf(format, image, c, x, y));
            }
        }
    }
    return picture;
}

inline PixelScale ScaleOf(const PixelFormat& format, const PixelColour& colour, int component) {
    const double peak = (1 << CodeBits(format, component)) - 1;
    if (format.family == PixelFamily::Rgb) {
        const double unit = peak / 255.0;
        if (colour.range == PixelRange::Full) return {0.0, peak};
        return {16.0 * unit, 219.0 * unit};
    }
    const double unit = format.bits == 10 ? 4.0 : 1.0;
    if (component == 0) {
        if (colour.range == PixelRange::Full) return {0.0, peak};
        return {16.0 * unit, 219.0 * unit};
    }
    return {128.0 * unit, colour.range == PixelRange::Full ? peak : 224.0 * unit};
}

inline double RedWeight(PixelMatrix matrix) {
    return matrix == PixelMatrix::Bt601 ? 0.299 : 0.2126;
}
inline double BlueWeight(PixelMatrix matrix) {
    return matrix == PixelMatrix::Bt601 ? 0.114 : 0.0722;
}

/// The distance of chroma row k from the top of the picture, in luma rows, where chroma has half of
/// them.
inline double ChromaLine(int k, PixelScan scan) {
    if (scan == PixelScan::TopField) return 2 * k + 0.25;
    if (scan == PixelScan::BottomField) return 2 * k + 0.75;
    return 2 * k + 0.5;
}

/// Linear interpolation down a column at row position `row`; the ends go on as they are.
inline double Between(const Component& from, int x, double row) {
    const double upper = std::floor(row);
    const double share = row - upper;
    return (1.0 - share) * from.Near(x, static_cast<int>(upper)) +
           share * from.Near(x, static_cast<int>(upper) + 1);
}

/// Chroma at full vertical resolution, or at half of it, from whichever it has.
inline Component ResampleRows(const Component& from, bool fromHalf, bool toHalf, int toHeight,
                              PixelScan scan) {
    if (fromHalf == toHalf) return from;
    Component to;
    to.Resize(from.width, toHeight);
    for (int y = 0; y < toHeight; ++y) {
        // Chroma row k lies at ChromaLine(k): invert that for going up.
        const double row = toHalf ? ChromaLine(y, scan) : (y - ChromaLine(0, scan)) / 2.0;
        for (int x = 0; x < from.width; ++x) to.At(x, y) = Between(from, x, row);
    }
    return to;
}

inline Component ResampleColumns(const Component& from, bool fromHalf, bool toHalf, int toWidth) {
    if (fromHalf == toHalf) return from;
    Component to;
    to.Resize(toWidth, from.height);
    for (int y = 0; y < from.height; ++y) {
        for (int x = 0; x < toWidth; ++x) {
            if (toHalf) {
                to.At(x, y) = from.Near(2 * x - 1, y) / 4 + from.Near(2 * x, y) / 2 +
                              from.Near(2 * x + 1, y) / 4;
            } else {
                to.At(x, y) = (from.Near(x / 2, y) + from.Near((x + 1) / 2, y)) / 2;
            }
        }
    }
    return to;
}

/// Codes of one picture (no interlaced frame) to codes of another, rounded and clamped.
inline Picture ConvertPicture(const PixelRequest& request, const Picture& codes, int height) {
    const PixelFormat& from = *FindPixelFormat(request.from);
    const PixelFormat& to = *FindPixelFormat(request.to);
    const int width = request.width;
    Picture value = codes;
    for (int c = 0; c < ComponentCount(from); ++c) {
        const PixelScale scale = ScaleOf(from, request.fromColour, c);
        const double peak = (1 << CodeBits(from, c)) - 1;
        for (double& v : value.c[c].values) {
            // A few bits of red, green and blue stand for the nearest code of 8 bits. Codes of 10
            // bits are fine enough to tell that from the fraction itself.
            if (peak < 255.0 && to.bits == 10)
                v = std::floor(v * 255.0 / peak + 0.5) * peak / 255.0;
            v = (v - scale.offset) / scale.span;
        }
    }
    if (from.family == PixelFamily::Grey) {
        for (int c = 1; c < 3; ++c) value.c[c].Resize(width, height);
    }

    const bool fromRgb = from.family == PixelFamily::Rgb;
    const bool toRgb = to.family == PixelFamily::Rgb;
    const PixelMatrix fromMatrix = request.fromColour.matrix;
    const PixelMatrix toMatrix = request.toColour.matrix;
    Picture result;
    // Everything through red, green and blue at full resolution, without clamping ...
    Component full[3];
    for (int c = 0; c < 3; ++c) {
        const bool half = c && from.HasChroma();
        full[c] = ResampleColumns(
            ResampleRows(value.c[c], half && from.shiftY, false, height, request.scan),
            half && from.shiftX, false, width);
    }
    const auto recode = [&](double(&p)[3]) {
        if (!fromRgb && (toRgb || fromMatrix != toMatrix)) {
            const double kr = RedWeight(fromMatrix), kb = BlueWeight(fromMatrix);
            const double r = p[0] + 2 * (1 - kr) * p[2];
            const double b = p[0] + 2 * (1 - kb) * p[1];
            const double g = (p[0] - kr * r - kb * b) / (1 - kr - kb);
            p[0] = r, p[1] = g, p[2] = b;
        }
        if (!toRgb && (fromRgb || fromMatrix != toMatrix)) {
            const double kr = RedWeight(toMatrix), kb = BlueWeight(toMatrix);
            const double y = kr * p[0] + (1 - kr - kb) * p[1] + kb * p[2];
            const double u = (p[2] - y) / (2 * (1 - kb));
            const double v = (p[0] - y) / (2 * (1 - kr));
            p[0] = y, p[1] = u, p[2] = v;
        }
    };
    for (int i = 0; i < width * height; ++i) {
        double p[3] = {full[0].values[i], full[1].values[i], full[2].values[i]};
        recode(p);
        for (int c = 0; c < 3; ++c) full[c].values[i] = p[c];
    }
    // ... but chroma from chroma at the resolution it has: it needs no luma.
    Component chroma[3] = {full[0], full[1], full[2]};
    bool half[2] = {false, false};
    if (from.HasChroma() && to.HasChroma()) {
        for (int c = 1; c < 3; ++c) chroma[c] = value.c[c];
        for (std::size_t i = 0; i < chroma[1].values.size(); ++i) {
            double p[3] = {0.0, chroma[1].values[i], chroma[2].values[i]};
            recode(p);
            chroma[1].values[i] = p[1];
            chroma[2].values[i] = p[2];
        }
        half[0] = from.shiftX;
        half[1] = from.shiftY;
    }
    for (int c = 0; c < ComponentCount(to); ++c) {
        result.c[c] = full[c];
        if (c && to.HasChroma()) {
            result.c[c] = ResampleColumns(
                ResampleRows(chroma[c], half[1], to.shiftY, to.ChromaHeight(height), request.scan),
                half[0], to.shiftX, to.ChromaWidth(width));
        }
        const PixelScale scale = ScaleOf(to, request.toColour, c);
        const double peak = (1 << CodeBits(to, c)) - 1;
        for (double& v : result.c[c].values) {
            v = std::clamp(std::floor(scale.offset + scale.span * v + 0.5), 0.0, peak);
        }
    }
    return result;
}

inline Component FieldOf(const Component& frame, int parity) {
    Component field;
    field.Resize(frame.width, (frame.height + 1 - parity) / 2);
    for (int y = 0; y < field.height; ++y) {
        for (int x = 0; x < field.width; ++x) field.At(x, y) = frame.At(x, 2 * y + parity);
    }
    return field;
}

/// Codes that `request` should give for `codes`. An interlaced frame is two pictures; chroma rows
/// that a field does not determine (see Weave) keep what the frame's picture gives.
inline Picture Convert(const PixelRequest& request, const Picture& codes) {
    if (request.scan != PixelScan::Interlaced || request.height < 3) {
        return ConvertPicture(request, codes, request.height);
    }
    const PixelFormat& to = *FindPixelFormat(request.to);
    Picture frame;
    for (int c = 0; c < ComponentCount(to); ++c) {
        frame.c[c].Resize(c ? to.ChromaWidth(request.width) : request.width,
                          c ? to.ChromaHeight(request.height) : request.height);
    }
    for (int parity = 0; parity < 2; ++parity) {
        PixelRequest single = request;
        single.scan = parity ? PixelScan::BottomField : PixelScan::TopField;
        Picture field;
        for (int c = 0; c < 3; ++c) field.c[c] = FieldOf(codes.c[c], parity);
        const Picture done = ConvertPicture(single, field, (request.height + 1 - parity) / 2);
        for (int c = 0; c < ComponentCount(to); ++c) {
            for (int y = parity; y < frame.c[c].height; y += 2) {
                for (int x = 0; x < frame.c[c].width; ++x) {
                    frame.c[c].At(x, y) = done.c[c].At(x, y / 2);
                }
            }
        }
    }
    return frame;
}

}  // namespace Quillon::Orb::Reference
