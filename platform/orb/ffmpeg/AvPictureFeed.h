#pragma once

#include <memory>

#include "orb/CVideoSample.h"

#include "AvSupport.h"
#include "PixelPlan.h"

namespace Quillon::Orb {

/// Turns the samples of a compressor into the frames that its libavcodec encoder reads.
///
/// Where the encoder reads the samples' own format the frame points into the sample, which it
/// keeps; nothing is copied. Otherwise the pixels are converted, once, into a pooled block: to the
/// 10 bits of ProRes, or to limited range for codecs that have no way to say full.
class AvPictureFeed {
public:
    /// `pixels` is what the encoder was opened with; 8-bit 4:2:0 or NV12, or 10-bit 4:2:2 or 4:4:4.
    /// With `limitedOnly` pictures of full range are brought into limited range.
    /// ResultNotSupported for a pair that cannot be.
    Result Begin(const VideoShape& shape, AVPixelFormat pixels, bool limitedOnly);

    /// Fills `frame`, which must be empty, but for its time and type.
    Result MakeFrame(const CVideoSample& sample, AVFrame& frame);

private:
    Result wrap(const CVideoSample& sample, AVFrame& frame) const;
    Result convert(const CVideoSample& sample, AVFrame& frame);

    VideoShape fShape;
    AVPixelFormat fPixels = AV_PIX_FMT_NONE;
    std::unique_ptr<PixelPlan> fPlan;  // null: frames point into the samples
    const PixelFormat* fTarget = nullptr;
};

}  // namespace Quillon::Orb
