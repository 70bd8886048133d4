#include "orb/VideoFormat.h"

#include <climits>
#include <initializer_list>

namespace Quillon::Orb {

namespace {

/// How a raw format lays its bytes out.
struct RawFormat {
    enum class Planes { Packed, Planar420, Biplanar420, Planar422 };

    unsigned int format;
    Planes planes;
    int bytesPerGroup;   ///< of the first plane
    int pixelsPerGroup;  ///< 2 where chroma is halved sideways
};

constexpr RawFormat kRawFormats[] = {
    {'UYVY', RawFormat::Planes::Packed, 4, 2},      {'YUYV', RawFormat::Planes::Packed, 4, 2},
    {'I420', RawFormat::Planes::Planar420, 2, 2},   {'YV12', RawFormat::Planes::Planar420, 2, 2},
    {'NV12', RawFormat::Planes::Biplanar420, 2, 2}, {'I422', RawFormat::Planes::Planar422, 2, 2},
    {'YV16', RawFormat::Planes::Planar422, 2, 2},   {'BGRA', RawFormat::Planes::Packed, 4, 1},
    {'GREY', RawFormat::Planes::Packed, 1, 1},      {'RV24', RawFormat::Planes::Packed, 3, 1},
    {'RV16', RawFormat::Planes::Packed, 2, 1},      {'RGB2', RawFormat::Planes::Packed, 1, 1},
};

const RawFormat* find_raw(unsigned int format) {
    for (const RawFormat& raw : kRawFormats) {
        if (raw.format == format) return &raw;
    }
    return nullptr;
}

/// Bytes that a row of the first plane needs. A packed pair counts whole; of planes the luma
/// pixels count, one byte each.
long long row_bytes(const RawFormat& raw, int width) {
    if (raw.planes != RawFormat::Planes::Packed) return width;
    return (static_cast<long long>(width) + raw.pixelsPerGroup - 1) / raw.pixelsPerGroup *
           raw.bytesPerGroup;
}

void add_plane(PixelLayout& layout, int stride, long long rowBytes, int rows) {
    PixelLayout::Plane& plane = layout.planes[layout.planeCount++];
    plane = {layout.length, stride, static_cast<int>(rowBytes), rows};
    layout.length += static_cast<long long>(stride) * rows;
}

/// The layout at the given pitch; `tight` takes chroma as rounded down, as buffers count it whose
/// rows are three halves of the height, truncated.
PixelLayout lay_out(const RawFormat& raw, int width, int height, int stride, bool tight) {
    const int up = tight ? 0 : 1;
    const int chromaRows = (height + up) / 2;
    const int chromaStride = (stride + up) / 2;
    const int wantedColumns = (width + 1) / 2;
    const int columns = wantedColumns < chromaStride ? wantedColumns : chromaStride;
    PixelLayout layout;
    add_plane(layout, stride, row_bytes(raw, width), height);
    switch (raw.planes) {
        case RawFormat::Planes::Packed:
            break;
        case RawFormat::Planes::Planar420:
            add_plane(layout, chromaStride, columns, chromaRows);
            add_plane(layout, chromaStride, columns, chromaRows);
            break;
        case RawFormat::Planes::Biplanar420:
            add_plane(layout, stride,
                      2LL * (2 * wantedColumns <= stride ? wantedColumns : stride / 2), chromaRows);
            break;
        case RawFormat::Planes::Planar422:
            add_plane(layout, chromaStride, columns, height);
            add_plane(layout, chromaStride, columns, height);
            break;
    }
    return layout;
}

/// Bytes that are really touched: behind the last meaningful row nothing need follow.
long long needed(const PixelLayout& layout) {
    const PixelLayout::Plane& last = layout.planes[layout.planeCount - 1];
    if (last.rows == 0) return last.offset;
    return last.offset + static_cast<long long>(last.stride) * (last.rows - 1) + last.rowBytes;
}

}  // namespace

unsigned int VideoFormat::GetCanonicalFormat(unsigned int format) {
    switch (format) {
        case 'apco':
        case 'apcs':
        case 'apcn':
        case 'apch':
        case 'ap4h':
        case 'ap4x':
            return 'ap  ';
        case 'avc1':
        case 'avc3':
            return 'h264';
        default:
            return format;
    }
}

bool VideoFormat::IsRaw(unsigned int format) {
    return find_raw(format) != nullptr;
}

int VideoFormat::GetStride(unsigned int format, int width, int alignment) {
    const RawFormat* raw = find_raw(format);
    if (!raw || width < 1 || alignment < 1) return 0;
    long long bytes = row_bytes(*raw, width);
    // Chroma rows lie half as far apart as luma rows, so the pitch of luma is even.
    if (raw->planes != RawFormat::Planes::Packed) bytes += bytes & 1;
    bytes = (bytes + alignment - 1) / alignment * alignment;
    return bytes > INT_MAX ? 0 : static_cast<int>(bytes);
}

int VideoFormat::GetSampleLength(unsigned int format, int width, int height, int stride) {
    const RawFormat* raw = find_raw(format);
    if (!raw || width < 1 || height < 1 || stride < 1) return 0;
    const PixelLayout layout = lay_out(*raw, width, height, stride, false);
    return layout.length > INT_MAX ? 0 : static_cast<int>(layout.length);
}

Result VideoFormat::GetLayout(unsigned int format, int width, int height, int stride,
                              long long length, PixelLayout& layout) {
    const RawFormat* raw = find_raw(format);
    if (!raw) return ResultNotSupported("not a raw video format");
    if (width < 1 || height < 1 || stride < row_bytes(*raw, width)) {
        return ResultInvalidArgument("%d x %d pixels do not fit rows of %d bytes", width, height,
                                     stride);
    }
    for (const bool tight : {false, true}) {
        layout = lay_out(*raw, width, height, stride, tight);
        if (needed(layout) <= length) return 0;
    }
    if (raw->planes == RawFormat::Planes::Planar422 && stride >= 2 * row_bytes(*raw, width)) {
        layout = lay_out(*raw, width, height, stride / 2, false);
        if (needed(layout) <= length) return 0;
    }
    return ResultInvalidArgument("%d x %d pixels in rows of %d bytes need more than %lld bytes",
                                 width, height, stride, length);
}

}  // namespace Quillon::Orb
