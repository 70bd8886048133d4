#pragma once

#include "orb/CAssetVideoWriter.h"
#include "orb/CVideoCompressor.h"

namespace Quillon::Orb {

/// A video track with a compressor in front. The compressor may be set up between SetInputFormat
/// and Begin.
class ORB_API CAssetVideoCompressor : public CAssetVideoWriter {
public:
    static constexpr unsigned int kType = 'vtrc';

    /// `output` describes what goes into the file; a copy is kept. Where no component has the code
    /// the track stands without a compressor and refuses every input format.
    CAssetVideoCompressor(CVideoProperties* output, unsigned int compressorCode);

    bool IsType(unsigned int type) const override {
        return type == kType || CAssetVideoWriter::IsType(type);
    }

    CValueList<unsigned int>* GetInputFormats() override;
    Result SetInputFormat(unsigned int format) override;
    Result Begin() override;

    /// Null where no component has the code.
    CVideoFilter* GetCompressor() const;

private:
    void take_over(const CVideoProperties& output);

    const RObject<CVideoCompressor> fCompressor;
};

}  // namespace Quillon::Orb
