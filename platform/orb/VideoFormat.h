#pragma once

#include "orb/Result.h"

namespace Quillon::Orb {

/// Where the planes of a raw picture lie in its block of bytes, in the order of memory.
struct PixelLayout {
    struct Plane {
        long long offset = 0;  ///< bytes from the start of the block
        int stride = 0;        ///< bytes from row to row
        int rowBytes = 0;      ///< bytes of a row that mean something
        int rows = 0;
    };

    int planeCount = 0;
    Plane planes[3];
    long long length = 0;  ///< bytes from the first row to the end of the last plane
};

/// Arithmetic and families of video formats. Stateless; any thread.
///
/// Raw formats, bytes in the order of memory:
///   'UYVY' 'YUYV'  4:2:2 packed
///   'I420' 'YV12'  4:2:0 in three planes, Y U V and Y V U; chroma rows are half as far apart
///   'NV12'         4:2:0, Y and then interleaved U V at the pitch of luma
///   'I422' 'YV16'  4:2:2 in three planes, Y U V and Y V U; chroma rows are half as far apart
///   'BGRA'         B G R A
///   'GREY'         luma alone
///   'RV24'         B G R
///   'RV16'         16-bit words of the machine's order, 5 bits red, 6 green, 5 blue
///   'RGB2'         3 bits red, 3 green, 2 blue in a byte
/// Odd sizes: chroma is rounded up, and so is the pitch of formats with halved chroma.
class ORB_API VideoFormat {
public:
    /// The name of a format's family: 'ap  ' for ProRes, 'h264' for 'h264' and 'avc1'; any other
    /// format is its own.
    static unsigned int GetCanonicalFormat(unsigned int format);
    static bool IsRaw(unsigned int format);

    /// Bytes from row to row, rounded up to a multiple of `alignment`; 0 for a format that is not
    /// raw, a size below 1, or a row that no int holds. Of planar formats the luma plane counts.
    static int GetStride(unsigned int format, int width, int alignment);
    /// Bytes of a picture whose rows lie `stride` apart; 0 as above.
    static int GetSampleLength(unsigned int format, int width, int height, int stride);

    /// Where the planes lie in a block of `length` bytes whose rows lie `stride` apart.
    ///
    /// Blocks that hosts hand over may be counted tighter than ours: 4:2:0 of an odd height may
    /// lack its last chroma row, of an odd pitch its last chroma column, and the pitch of planar
    /// 4:2:2 may span all three planes of a row. Where `length` leaves no other reading, the layout
    /// is that one, with fewer `rows` or `rowBytes`. ResultNotSupported for a format that is not
    /// raw, ResultInvalidArgument where the picture does not fit.
    static Result GetLayout(unsigned int format, int width, int height, int stride,
                            long long length, PixelLayout& layout);
};

}  // namespace Quillon::Orb
