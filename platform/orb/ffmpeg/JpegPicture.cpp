#include "JpegPicture.h"

#include <cstring>
#include <turbojpeg.h>

#include "RawPicture.h"

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

/// Makes a block that is used again and again large enough. False when there is no memory.
bool has_room(Block& block, unsigned long& size, unsigned long wanted) {
    if (wanted > size) {
        block = Block(wanted);
        size = block ? wanted : 0;
    }
    return static_cast<bool>(block);
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

/// Where chroma is halved libjpeg reads luma up to the next even column and row, which pictures of
/// odd sizes do not have: what it would find there rings into the pixels beside it.
Result JpegPicture::complete_luma(const VideoShape& shape, int subsampling, PixelImage& image) {
    const int width = tjPlaneWidth(0, shape.width, subsampling);
    const int height = tjPlaneHeight(0, shape.height, subsampling);
    if (width == shape.width && height == shape.height) return 0;
    const unsigned long wanted =
        static_cast<unsigned long>(width) * static_cast<unsigned long>(height);
    if (!has_room(fLuma, fLumaSize, wanted)) return ResultOutOfMemory();
    CompletePlane(image.planes[0], {0, image.strides[0], shape.width, shape.height}, fLuma.Get(),
                  {0, width, width, height}, 1);
    image.planes[0] = fLuma.Get();
    image.strides[0] = width;
    return 0;
}

Result JpegPicture::compress(const PixelImage& image, const VideoShape& shape, int quality,
                             unsigned long& size) {
    const int subsampling = subsampling_of(shape.format);
    const unsigned long room = tjBufSize(shape.width, shape.height, subsampling);
    if (!has_room(fScratch, fScratchSize, room)) return ResultOutOfMemory();
    PixelImage whole = image;
    Result result = complete_luma(shape, subsampling, whole);
    if (result.Failed()) return result;
    const unsigned char* planes[3] = {whole.planes[0], whole.planes[1], whole.planes[2]};
    unsigned char* out = fScratch.Get();
    size = fScratchSize;
    // The accurate transform is as fast as the other one where both are vectorised.
    const int failed = tjCompressFromYUVPlanes(fCompressor, planes, shape.width, whole.strides,
                                               shape.height, subsampling, &out, &size, quality,
                                               TJFLAG_NOREALLOC | TJFLAG_ACCURATEDCT);
    if (failed) return ResultError("no JPEG: %s", tjGetErrorStr2(fCompressor));
    return 0;
}

}  // namespace Quillon::Orb
