#pragma once

#include "tarn/filters/tnComponentVideoCompressor.h"

/// Motion JPEG: each picture stands alone. "codec_quality" is "mjpeg_best", "mjpeg_high" (also for
/// what is none of these), "mjpeg_medium" or "mjpeg_low".
class TARN_API tnMjpegVideoCompressor : public tnComponentVideoCompressor {
public:
    tnMjpegVideoCompressor();
    ~tnMjpegVideoCompressor() override;

protected:
    void configure_component(const tnMediaRecord& output,
                             Quillon::Orb::IProperties& component) override;
};
