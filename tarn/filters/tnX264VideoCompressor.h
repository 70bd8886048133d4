#pragma once

#include "tarn/filters/tnComponentVideoCompressor.h"

/// H.264 in software. Beside the common settings: "b_frames" (at most so many in a row, 0 if
/// unset), "encoder_preset" ("ultrafast" to "placebo", "veryfast" if unset), "encoder_threads" (4
/// if unset, 0 for as many as there are processors). Without a bit rate the quality is constant.
class TARN_API tnX264VideoCompressor : public tnComponentVideoCompressor {
public:
    tnX264VideoCompressor();
    ~tnX264VideoCompressor() override;

protected:
    void configure_component(const tnMediaRecord& output,
                             Quillon::Orb::IProperties& component) override;
};
