#pragma once

extern "C" {
#include <libavutil/samplefmt.h>
}

#include "orb/ffmpeg/PcmFormat.h"

namespace Quillon::Orb {

/// libswresample's name of a format's samples, in this machine's byte order.
inline AVSampleFormat swr_format_of(const PcmFormat& format) {
    switch (format.kind) {
        case PcmFormat::Kind::Unsigned8:
            return AV_SAMPLE_FMT_U8;
        case PcmFormat::Kind::Int16:
            return AV_SAMPLE_FMT_S16;
        case PcmFormat::Kind::Int32:
            return AV_SAMPLE_FMT_S32;
        case PcmFormat::Kind::Float32:
            return AV_SAMPLE_FMT_FLT;
        case PcmFormat::Kind::Float64:
            return AV_SAMPLE_FMT_DBL;
    }
    return AV_SAMPLE_FMT_NONE;
}

}  // namespace Quillon::Orb
