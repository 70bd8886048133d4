#pragma once

#include "orb/CAssetAudioWriter.h"
#include "orb/CAudioCompressor.h"

namespace Quillon::Orb {

/// An audio track with a compressor in front; lives as CAssetVideoCompressor does.
class ORB_API CAssetAudioCompressor : public CAssetAudioWriter {
public:
    static constexpr unsigned int kType = 'atrc';

    CAssetAudioCompressor(CAudioProperties* output, unsigned int compressorCode);

    bool IsType(unsigned int type) const override {
        return type == kType || CAssetAudioWriter::IsType(type);
    }

    CValueList<unsigned int>* GetInputFormats() override;
    Result SetInputFormat(unsigned int format) override;
    Result Begin() override;

    /// Null where no component has the code.
    CAudioFilter* GetCompressor() const;

private:
    void take_over_output();

    const RObject<CAudioCompressor> fCompressor;
};

}  // namespace Quillon::Orb
