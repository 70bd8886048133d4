#pragma once

#include "tarn/filters/tnComponentVideoCompressor.h"

/// H.264 by the platform's own encoder: in hardware where there is any, else in software.
class TARN_API tnPlatformVideoCompressor : public tnComponentVideoCompressor {
public:
    tnPlatformVideoCompressor();
    ~tnPlatformVideoCompressor() override;

protected:
    /// For another component with the same settings.
    explicit tnPlatformVideoCompressor(unsigned int component);

    void configure_component(const tnMediaRecord& output,
                             Quillon::Orb::IProperties& component) override;
};
