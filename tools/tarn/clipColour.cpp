#include "clipColour.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

AVPixelFormat WithoutRange(AVPixelFormat format) {
    switch (format) {
        case AV_PIX_FMT_YUVJ420P:
            return AV_PIX_FMT_YUV420P;
        case AV_PIX_FMT_YUVJ422P:
            return AV_PIX_FMT_YUV422P;
        case AV_PIX_FMT_YUVJ444P:
            return AV_PIX_FMT_YUV444P;
        case AV_PIX_FMT_YUVJ440P:
            return AV_PIX_FMT_YUV440P;
        case AV_PIX_FMT_YUVJ411P:
            return AV_PIX_FMT_YUV411P;
        default:
            return format;
    }
}

bool IsFullRange(AVPixelFormat format, AVColorRange range) {
    if (range != AVCOL_RANGE_UNSPECIFIED) return range == AVCOL_RANGE_JPEG;
    const AVPixFmtDescriptor* shape = av_pix_fmt_desc_get(format);
    const bool isGrey = shape && shape->nb_components < 3;
    return format != WithoutRange(format) || isGrey;
}
