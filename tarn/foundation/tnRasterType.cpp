#include "tarn/foundation/tnRasterType.h"

namespace {

struct Raster {
    int fType;
    int fBitsPerPixel;
    int fBytesPerPixelInRow;  // of the pitch-giving plane
    bool fChromaBelow;        // 4:2:0: the chroma stands in rows of the luma's pitch below it
    bool fYUV;
    bool fPlanar;
};

constexpr Raster kRasters[] = {
    {'2vuy', 16, 2, false, true, false},  {'yuvs', 16, 2, false, true, false},
    {'I420', 12, 1, true, true, true},    {'IMC4', 12, 1, true, true, true},
    {'NV12', 12, 1, true, true, true},    {'YV12', 12, 1, true, true, true},
    {'YM16', 16, 2, false, true, true},  // planar, and yet its rows are the picture's height
    {'gry8', 8, 1, false, false, false},  {'rgb8', 8, 1, false, false, false},
    {'rgb6', 16, 2, false, false, false}, {'rgb2', 24, 3, false, false, false},
    {'rgb ', 32, 4, false, false, false}, {'rgba', 32, 4, false, false, false},
    {'RGBA', 32, 4, false, false, false}, {'Grgb', 32, 4, false, false, false},
};

constexpr Raster kUnknown{0, 0, 0, false, false, false};

/// 32-bit arithmetic of this room wraps: a nonsense size gives a nonsense answer, never a trap.
constexpr int times(int a, int b) {
    return static_cast<int>(static_cast<unsigned int>(a) * static_cast<unsigned int>(b));
}

constexpr const Raster& raster(int type) {
    for (const Raster& known : kRasters) {
        if (known.fType == type) {
            return known;
        }
    }
    return kUnknown;
}

}  // namespace

int tnRasterType::BitsPerPixel(int type) {
    return raster(type).fBitsPerPixel;
}

int tnRasterType::RowCount(int height, int type) {
    return raster(type).fChromaBelow ? times(3, height) / 2 : height;
}

int tnRasterType::BytesPerRowComponent(int width, int bytesPerComponent, bool align128) {
    const unsigned int mask = (align128 ? 128u : 64u) - 1;
    const unsigned int bytes = static_cast<unsigned int>(times(width, bytesPerComponent));
    return static_cast<int>((bytes + mask) & ~mask);
}

int tnRasterType::BytesPerRow(int width, int type, bool align128) {
    const Raster& known = raster(type);
    const int bytes = known.fChromaBelow ? width : times(known.fBitsPerPixel, width) / 8;
    return BytesPerRowComponent(bytes, 1, align128);
}

int tnRasterType::ActiveBytesPerRow(int width, int type) {
    return times(width, raster(type).fBytesPerPixelInRow);
}

bool tnRasterType::IsYUVFormat(int type) {
    return raster(type).fYUV;
}

bool tnRasterType::IsPlanarFormat(int type) {
    return raster(type).fPlanar;
}
