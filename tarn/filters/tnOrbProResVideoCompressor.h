#pragma once

#include "tarn/filters/tnOrbVideoCompressor.h"

/// ProRes of the flavour that "codec_quality" names, by the platform's own encoder.
class TARN_API tnOrbProResVideoCompressor : public tnOrbVideoCompressor {
public:
    ~tnOrbProResVideoCompressor() override;

protected:
    int create_orb_compressor(const zRecord& settings) override;
};
