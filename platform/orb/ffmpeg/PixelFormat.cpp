#include "PixelFormat.h"

namespace Quillon::Orb {

namespace {

using enum PixelFamily;
using enum PixelShape;

//                             family  shape      bits unit  x  y  swapped
constexpr PixelFormat kFormats[] = {
    {'UYVY', Yuv, Packed, 8, 2, 1, 0, false},      {'YUYV', Yuv, Packed, 8, 2, 1, 0, true},
    {'I420', Yuv, Planar, 8, 1, 1, 1, false},      {'YV12', Yuv, Planar, 8, 1, 1, 1, true},
    {'NV12', Yuv, SemiPlanar, 8, 1, 1, 1, false},  {'I422', Yuv, Planar, 8, 1, 1, 0, false},
    {'YV16', Yuv, Planar, 8, 1, 1, 0, true},       {'BGRA', Rgb, Packed, 8, 4, 0, 0, false},
    {'GREY', Grey, Planar, 8, 1, 0, 0, false},     {'RV24', Rgb, Packed, 8, 3, 0, 0, false},
    {'RV16', Rgb, Packed, 8, 2, 0, 0, false},      {'RGB2', Rgb, Packed, 8, 1, 0, 0, false},
    {kPixelI210, Yuv, Planar, 10, 2, 1, 0, false}, {kPixelI410, Yuv, Planar, 10, 2, 0, 0, false},
};
constexpr int kFormatCount = sizeof kFormats / sizeof kFormats[0];

struct Codes {
    unsigned int values[kFormatCount] = {};
    constexpr Codes() {
        for (int i = 0; i < kFormatCount; ++i) values[i] = kFormats[i].code;
    }
};
constexpr Codes kCodes;

int chroma_stride(const PixelFormat& format, int stride) {
    if (format.shape == SemiPlanar) return stride + (stride & 1);
    const int units = stride / format.bytesPerUnit;
    return ((units + (1 << format.shiftX) - 1) >> format.shiftX) * format.bytesPerUnit;
}

}  // namespace

int PixelFormat::RowBytes(int width) const {
    if (family == Yuv && shape == Packed) return ((width + 1) & ~1) * bytesPerUnit;
    return width * bytesPerUnit;
}

const PixelFormat* FindPixelFormat(unsigned int code) {
    for (const PixelFormat& format : kFormats) {
        if (format.code == code) return &format;
    }
    return nullptr;
}

const unsigned int* AllPixelFormats(int& count) {
    count = kFormatCount;
    return kCodes.values;
}

PixelImage LayOutPixels(const PixelFormat& format, unsigned char* block, int height, int stride) {
    PixelImage image;
    image.planes[0] = block;
    image.strides[0] = stride;
    if (!format.HasChroma() || format.shape == Packed) return image;

    const std::size_t luma = static_cast<std::size_t>(stride) * height;
    image.strides[1] = chroma_stride(format, stride);
    image.planes[1] = block + luma;
    if (format.shape == SemiPlanar) return image;

    const std::size_t chroma =
        static_cast<std::size_t>(image.strides[1]) * format.ChromaHeight(height);
    image.strides[2] = image.strides[1];
    image.planes[1] = block + luma + (format.swapped ? chroma : 0);
    image.planes[2] = block + luma + (format.swapped ? 0 : chroma);
    return image;
}

std::size_t PixelBlockBytes(const PixelFormat& format, int width, int height, int stride) {
    if (width < 1 || height < 1) return 0;
    const std::size_t rows = static_cast<std::size_t>(height);
    const std::size_t luma = static_cast<std::size_t>(stride) * rows;
    if (!format.HasChroma() || format.shape == Packed) {
        return luma - stride + format.RowBytes(width);
    }
    const std::size_t chromaStride = chroma_stride(format, stride);
    const std::size_t chromaRows = format.ChromaHeight(height);
    const std::size_t row = static_cast<std::size_t>(format.ChromaWidth(width)) *
                            format.bytesPerUnit * (format.shape == SemiPlanar ? 2 : 1);
    const std::size_t planes = format.shape == SemiPlanar ? 1 : 2;
    return luma + chromaStride * (chromaRows * planes - 1) + row;
}

}  // namespace Quillon::Orb
