#include "ClipScaler.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

#include "clipColour.h"

namespace {

constexpr int kWhole = -1;  // no field

int chroma_shift(AVPixelFormat format) {
    const AVPixFmtDescriptor* shape = av_pix_fmt_desc_get(format);
    return shape ? shape->log2_chroma_h : 0;
}

int rows_of_plane(AVPixelFormat format, int plane, int rows) {
    const bool isChroma = plane == 1 || plane == 2;
    return isChroma ? AV_CEIL_RSHIFT(rows, chroma_shift(format)) : rows;
}

/// Rows of the top field (0) or the bottom one (1) of a picture.
int rows_of_field(int rows, int field) {
    return (rows + 1 - field) / 2;
}

/// Chroma of a field does not lie in the middle between its rows, as that of a whole picture does.
/// In 256ths of a row.
int chroma_position(int field) {
    constexpr int kMiddle = 128, kTop = 64, kBottom = 192;
    return field == kWhole ? kMiddle : field == 0 ? kTop : kBottom;
}

AvHandle<AVFrame> make_frame(AVPixelFormat format, int width, int height) {
    AvHandle<AVFrame> frame(av_frame_alloc());
    if (!frame) return nullptr;
    frame->format = format;
    frame->width = width;
    frame->height = height;
    if (av_frame_get_buffer(frame.get(), 0) < 0) return nullptr;
    return frame;
}

/// Copies one field of `picture` into `to`. A picture of 4:2:0 whose rows do not go by four lacks
/// the bottom field's last row of chroma; the one before it stands there too.
void take_field(const AVFrame& picture, AVPixelFormat format, int field, AVFrame& to) {
    const int rows = rows_of_field(picture.height, field);
    for (int plane = 0; plane < av_pix_fmt_count_planes(format); ++plane) {
        const int bytes = av_image_get_linesize(format, picture.width, plane);
        const int last = rows_of_plane(format, plane, picture.height) - 1;
        for (int row = 0; row < rows_of_plane(format, plane, rows); ++row) {
            int from = 2 * row + field;
            if (from > last) from = std::max(0, from - 2);
            std::memcpy(
                to.data[plane] + static_cast<std::ptrdiff_t>(row) * to.linesize[plane],
                picture.data[plane] + static_cast<std::ptrdiff_t>(from) * picture.linesize[plane],
                static_cast<std::size_t>(bytes));
        }
    }
}

/// Weaves a field into a picture of `height` rows.
void put_field(const AVFrame& field, int parity, int height, uint8_t* const planes[4],
               const int pitches[4]) {
    const auto format = static_cast<AVPixelFormat>(field.format);
    for (int plane = 0; plane < av_pix_fmt_count_planes(format); ++plane) {
        const int rows = rows_of_field(rows_of_plane(format, plane, height), parity);
        av_image_copy_plane(planes[plane] + parity * pitches[plane], 2 * pitches[plane],
                            field.data[plane], field.linesize[plane],
                            av_image_get_linesize(format, field.width, plane), rows);
    }
}

}  // namespace

void ClipScaler::SetTarget(const Target& target) {
    fTarget = target;
    fSource = {};
}

bool ClipScaler::IsThere(const AVFrame& picture) const {
    return picture.format == fTarget.format && picture.width == fTarget.width &&
           picture.height == fTarget.height && fTarget.fromMatrix == fTarget.toMatrix;
}

/// Whether rows of two fields, which are two moments, would be put into one. A palette is of no
/// rows, and its pictures are of no fields.
bool ClipScaler::mixes_fields(const Source& source) const {
    if (!fTarget.interlaced) return false;
    const AVPixFmtDescriptor* shape = av_pix_fmt_desc_get(source.format);
    if (!shape || (shape->flags & AV_PIX_FMT_FLAG_PAL) != 0) return false;
    return source.height != fTarget.height || shape->log2_chroma_h != chroma_shift(fTarget.format);
}

// Another matrix goes by way of RGB: with less accuracy it is off by two and wraps round at the
// edge of the gamut. Pixels that stay where they are need no filter on the way there and back,
// which would cost twice the time and some sharpness.
int ClipScaler::flags_for(const Source& source) const {
    if (fTarget.fromMatrix == fTarget.toMatrix) return fTarget.flags;
    const AVPixFmtDescriptor* from = av_pix_fmt_desc_get(source.format);
    const AVPixFmtDescriptor* to = av_pix_fmt_desc_get(fTarget.format);
    const bool stays = source.width == fTarget.width && source.height == fTarget.height && from &&
                       to && from->log2_chroma_w == to->log2_chroma_w &&
                       from->log2_chroma_h == to->log2_chroma_h;
    constexpr int kAccurate = SWS_ACCURATE_RND | SWS_FULL_CHR_H_INP | SWS_FULL_CHR_H_INT;
    return kAccurate | (stays ? SWS_POINT : SWS_BICUBIC);
}

// The ranges of both sides are told: by itself the scaler takes them from the formats' names, and
// would bring full range to limited in pictures that are described as full.
ClipScaler::Scaler ClipScaler::make_scaler(const Source& source, int fromRows, int toRows,
                                           int field) const {
    Scaler scaler(sws_alloc_context());
    if (!scaler) return nullptr;
    const bool converts = fTarget.fromMatrix != fTarget.toMatrix;
    const AVPixelFormat format = WithoutRange(fTarget.format);
    const std::pair<const char*, int> settings[] = {
        {"srcw", source.width},           {"srch", fromRows},
        {"src_format", source.format},    {"src_range", source.fullRange},
        {"dstw", fTarget.width},          {"dsth", toRows},
        {"dst_format", format},           {"dst_range", fTarget.fullRange},
        {"sws_flags", flags_for(source)},
    };
    for (const auto& [name, value] : settings) av_opt_set_int(scaler.get(), name, value, 0);
    if (field != kWhole) {
        const int position = chroma_position(field);
        if (chroma_shift(source.format) == 1) {
            av_opt_set_int(scaler.get(), "src_v_chr_pos", position, 0);
        }
        if (chroma_shift(format) == 1) av_opt_set_int(scaler.get(), "dst_v_chr_pos", position, 0);
    }
    if (converts) {
        constexpr int kOne = 1 << 16;  // contrast and saturation as they are
        sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(fTarget.fromMatrix),
                                 source.fullRange, sws_getCoefficients(fTarget.toMatrix),
                                 fTarget.fullRange, 0, kOne, kOne);
    }
    return sws_init_context(scaler.get(), nullptr, nullptr) >= 0 ? std::move(scaler) : nullptr;
}

bool ClipScaler::prepare(const Source& source) {
    if (fSource == source) return true;
    fSource = {};
    fWhole.reset();
    if (!mixes_fields(source)) {
        fWhole = make_scaler(source, source.height, fTarget.height, kWhole);
        if (!fWhole) return false;
        fSource = source;
        return true;
    }
    for (const int field : {0, 1}) {
        fFields[field] = make_scaler(source, rows_of_field(source.height, field),
                                     rows_of_field(fTarget.height, field), field);
    }
    fFieldIn = make_frame(source.format, source.width, rows_of_field(source.height, 0));
    fFieldOut =
        make_frame(WithoutRange(fTarget.format), fTarget.width, rows_of_field(fTarget.height, 0));
    if (!fFields[0] || !fFields[1] || !fFieldIn || !fFieldOut) return false;
    fSource = source;
    return true;
}

bool ClipScaler::Scale(const AVFrame& picture, uint8_t* const planes[4], const int pitches[4]) {
    const auto format = static_cast<AVPixelFormat>(picture.format);
    const Source source{picture.width, picture.height, WithoutRange(format),
                        IsFullRange(format, picture.color_range)};
    if (!prepare(source)) return false;
    if (!fWhole) {
        return scale_field(picture, 0, planes, pitches) && scale_field(picture, 1, planes, pitches);
    }
    sws_scale(fWhole.get(), picture.data, picture.linesize, 0, picture.height, planes, pitches);
    return true;
}

bool ClipScaler::scale_field(const AVFrame& picture, int field, uint8_t* const planes[4],
                             const int pitches[4]) {
    take_field(picture, fSource.format, field, *fFieldIn);
    const int rows = rows_of_field(picture.height, field);
    if (sws_scale(fFields[field].get(), fFieldIn->data, fFieldIn->linesize, 0, rows,
                  fFieldOut->data, fFieldOut->linesize) < 0) {
        return false;
    }
    put_field(*fFieldOut, field, fTarget.height, planes, pitches);
    return true;
}
