#pragma once

#include "tarn/filters/tnPlatformVideoCompressor.h"

/// H.264 by NVENC and nothing else: without its driver and a device frames are answered with -1034.
class TARN_API tnNvencVideoCompressor : public tnPlatformVideoCompressor {
public:
    tnNvencVideoCompressor();
    ~tnNvencVideoCompressor() override;
};
