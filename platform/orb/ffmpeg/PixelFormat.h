#pragma once

#include <cstddef>

namespace Quillon::Orb {

/// What the numbers of a raw picture stand for.
enum class PixelFamily { Rgb, Yuv, Grey };

/// How they lie in memory.
///
/// Packed: one plane, all components of a pixel (or of a pair of pixels) together.
/// Planar: one plane a component. SemiPlanar: luma, then one plane with U and V in turn.
enum class PixelShape { Packed, Planar, SemiPlanar };

/// Planar 4:2:2 and 4:4:4 with 10 bits in little-endian 16-bit words. Between our own components
/// only: they feed ProRes, which would otherwise throw two bits of every computed value away.
inline constexpr unsigned int kPixelI210 = 'I210';
inline constexpr unsigned int kPixelI410 = 'I410';

/// One raw format.
///
/// The formats with red, green and blue read as little-endian numbers with red on top, whatever
/// their size: 'BGRA' is 0xAARRGGBB, 'RV24' 0xRRGGBB (so blue is the first byte), 'RV16' is
/// RRRRRGGG GGGBBBBB, 'RGB2' is RRRGGGBB; the few bits of the last two stand for the nearest code
/// of 8 bits. 'GREY' is luma alone.
struct PixelFormat {
    unsigned int code;
    PixelFamily family;
    PixelShape shape;
    int bits;          ///< of a component of Y, U and V; 8 for the rest
    int bytesPerUnit;  ///< bytes of a pixel if packed, of a component if not
    int shiftX;        ///< chroma has (width >> shiftX) columns, rounded up
    int shiftY;
    bool swapped;  ///< V stands before U; or, packed, luma before chroma

    bool HasChroma() const { return family == PixelFamily::Yuv; }
    int ChromaWidth(int width) const { return (width + (1 << shiftX) - 1) >> shiftX; }
    int ChromaHeight(int height) const { return (height + (1 << shiftY) - 1) >> shiftY; }

    /// Bytes that one row of the first plane really uses. Packed 4:2:2 always has whole pairs.
    int RowBytes(int width) const;
};

/// The format of a four-character code, or null if it is not a raw format.
const PixelFormat* FindPixelFormat(unsigned int code);

/// Codes of all raw formats, those of the contract first; `count` receives their number.
const unsigned int* AllPixelFormats(int& count);

/// Where the planes of a picture begin and how far apart their rows are, in bytes.
/// The order of planes is always Y, U, V (or the one packed plane; or Y and the UV plane).
struct PixelImage {
    unsigned char* planes[3] = {};
    int strides[3] = {};
};

/// Lays a picture over one block: luma rows `stride` bytes apart, chroma planes right behind.
/// Planar chroma rows are half of `stride` apart (rounded up) where chroma is half as wide.
PixelImage LayOutPixels(const PixelFormat& format, unsigned char* block, int height, int stride);

/// Bytes from the start of the block to the last byte used, with the layout above.
std::size_t PixelBlockBytes(const PixelFormat& format, int width, int height, int stride);

}  // namespace Quillon::Orb
