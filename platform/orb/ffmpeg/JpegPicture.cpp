#include "JpegPicture.h"

#include <cstring>
#include <turbojpeg.h>

namespace Quillon::Orb {

namespace {

// A marker 0xFFFE, the length of what follows it, and the text with its closing zero.
constexpr unsigned char kLimitedRange[] = {0xFF, 0xFE, 0,   12,  'C', 'S', '=',
                                           'I',  'T',  'U', '6', '0', '1', 0};

// Start of image, then a JFIF segment: marker, length 16, "JFIF\0", version, units, densities.
constexpr unsigned char kJfifStart[] = {0xFF, 0xD8, 0xFF, 0xE0, 0, 16, 'J', 'F', 'I', 'F', 0};
constexpr unsigned long kJfifEnd = 20;
constexpr int kUnitsOffset = 13;
constexpr int kLargestDensity = 65535;

int subsampling_of(unsigned int format) {
    switch (format) {
        case 'I422':
        case 'YV16':
            return TJSAMP_422;
        case 'GREY':
            return TJSAMP_GRAY;
        default:
            return TJSAMP_420;
    }
}

void set_pixel_aspect(Rational<int> aspect, unsigned char* jpeg) {
    if (aspect.numerator > kLargestDensity || aspect.denominator > kLargestDensity) return;
    unsigned char* at = jpeg + kUnitsOffset;
    *at++ = 0;  // no unit: the densities are an aspect
    for (const int density : {aspect.numerator, aspect.denominator}) {
        *at++ = static_cast<unsigned char>(density >> 8);
        *at++ = static_cast<unsigned char>(density);
    }
}

}  // namespace

JpegPicture::JpegPicture() : fCompressor(tjInitCompress()) {}

JpegPicture::~JpegPicture() {
    if (fCompressor) tjDestroy(fCompressor);
}

Result JpegPicture::Encode(const PixelImage& image, const VideoShape& shape, int quality,
                           RObject<CByteArray>& jpeg) {
    if (!fCompressor) return ResultOutOfMemory();
    unsigned long size = 0;
    Result result = compress(image, shape, quality, size);
    if (result.Failed()) return result;

    unsigned char* scratch = fScratch.Get();
    const bool isJfif = size > kJfifEnd && std::memcmp(scratch, kJfifStart, sizeof kJfifStart) == 0;
    if (!isJfif) return ResultError("the encoder gave something else than a JPEG");
    set_pixel_aspect(shape.pixelAspect, scratch);
    const unsigned long comment = shape.fullRange ? 0 : sizeof kLimitedRange;
    jpeg = new CByteArray(static_cast<int>(size + comment), 1);
    if (!jpeg || !jpeg->GetData()) return ResultOutOfMemory();
    unsigned char* out = jpeg->GetData();
    std::memcpy(out, scratch, kJfifEnd);
    std::memcpy(out + kJfifEnd, kLimitedRange, comment);
    std::memcpy(out + kJfifEnd + comment, scratch + kJfifEnd, size - kJfifEnd);
    return 0;
}

Result JpegPicture::compress(const PixelImage& image, const VideoShape& shape, int quality,
                             unsigned long& size) {
    const int subsampling = subsampling_of(shape.format);
    const unsigned long room = tjBufSize(shape.width, shape.height, subsampling);
    if (room > fScratchSize) {
        fScratch = Block(room);
        fScratchSize = fScratch ? room : 0;
    }
    if (!fScratch) return ResultOutOfMemory();
    const unsigned char* planes[3] = {image.planes[0], image.planes[1], image.planes[2]};
    unsigned char* out = fScratch.Get();
    size = fScratchSize;
    // The accurate transform is as fast as the other one where both are vectorised.
    const int failed = tjCompressFromYUVPlanes(fCompressor, planes, shape.width, image.strides,
                                               shape.height, subsampling, &out, &size, quality,
                                               TJFLAG_NOREALLOC | TJFLAG_ACCURATEDCT);
    if (failed) return ResultError("no JPEG: %s", tjGetErrorStr2(fCompressor));
    return 0;
}

}  // namespace Quillon::Orb
