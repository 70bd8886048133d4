#pragma once

#include "tarn/export.h"

/// Sizes of a video frame in memory, from a raster type and the frame's dimensions.
///
/// A raster type is the four-character code of a pixel layout, as a media record keeps it in
/// `fColourspace`. Stream buffers, encoders and file writers all ask here, and so they agree. A
/// code that is not in the table answers 0 and counts as neither YUV nor planar; the media
/// library's own codes ('BGRA', 'UYVY', ...) are such codes. No state, no locks, no failures;
/// overflow is not tested.
class TARN_API tnRasterType {
public:
    /// Average bits of one pixel over all planes; 0 for an unknown code.
    static int BitsPerPixel(int type);

    /// Rows of the buffer at one pitch: half as many again as `height` for the 4:2:0 layouts,
    /// rounded down, whose chroma rows use the luma's pitch; `height` for all others.
    static int RowCount(int height, int type);

    /// Bytes of a row of so many components, padded to whole blocks of 64 (`align128`: 128).
    static int BytesPerRowComponent(int width, int bytesPerComponent, bool align128);

    /// The padded pitch of the (first) plane in bytes; 0 for an unknown code.
    static int BytesPerRow(int width, int type, bool align128);

    /// The bytes of a row that hold pixels, without padding; 0 for an unknown code.
    static int ActiveBytesPerRow(int width, int type);

    static bool IsYUVFormat(int type);
    static bool IsPlanarFormat(int type);
};
