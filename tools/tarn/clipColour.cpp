#include "clipColour.h"

extern "C" {
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <fmt/format.h>

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

int MatrixToLeave(AVColorSpace matrix) {
    switch (matrix) {
        case AVCOL_SPC_FCC:
            return SWS_CS_FCC;
        case AVCOL_SPC_SMPTE240M:
            return SWS_CS_SMPTE240M;
        case AVCOL_SPC_BT2020_NCL:
            return SWS_CS_BT2020;
        default:
            return 0;
    }
}

std::string ColourTrouble(AVColorSpace matrix, AVColorTransferCharacteristic transfer) {
    if (transfer == AVCOL_TRC_SMPTE2084 || transfer == AVCOL_TRC_ARIB_STD_B67) {
        return fmt::format(
            "its pictures are of high dynamic range ({}), which a recording cannot say: it will "
            "look pale and grey; bring the clip to BT.709 first, as ffmpeg's tonemap filter does",
            transfer == AVCOL_TRC_SMPTE2084 ? "PQ" : "HLG");
    }
    switch (matrix) {
        case AVCOL_SPC_YCGCO:
        case AVCOL_SPC_BT2020_CL:
        case AVCOL_SPC_SMPTE2085:
        case AVCOL_SPC_CHROMA_DERIVED_NCL:
        case AVCOL_SPC_CHROMA_DERIVED_CL:
        case AVCOL_SPC_ICTCP:
            return fmt::format(
                "its colours are of the matrix '{}', which is recorded as if it were another: all "
                "hues will be wrong; bring the clip to BT.709 first, as ffmpeg's zscale filter "
                "does",
                av_color_space_name(matrix));
        default:
            return "";
    }
}
