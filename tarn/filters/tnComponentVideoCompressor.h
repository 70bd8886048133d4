#pragma once

#include "tarn/filters/tnOrbVideoCompressor.h"

namespace Quillon::Orb {
class IProperties;
}

/// What the compressors over one component of known code and format share: the component is told
/// the very shape that reaches it, converter or not, and before it begins its own format in place
/// of the ProRes that it was offered. Abstract.
///
/// Settings come from the output record: 'mtbr' ("target_bit_rate", kilobits per second),
/// "key_frame_rate" (frames), 'mpro' ("profile": 'base', 'main', 'high'), "strict_cbr". A setting
/// that a component refuses is traced by it and left at its default: a live output with another
/// setting beats none. A strict rate is filled up here, since no component does it.
class TARN_API tnComponentVideoCompressor : public tnOrbVideoCompressor {
public:
    ~tnComponentVideoCompressor() override;

protected:
    tnComponentVideoCompressor(unsigned int component, unsigned int outputFormat);

    /// Hands the settings of `output` to the component.
    virtual void configure_component(const tnMediaRecord& output,
                                     Quillon::Orb::IProperties& component) = 0;

    /// -1 when there is no such component.
    int create_orb_compressor(const zRecord& settings) override;
    unsigned int encoder_input_format_for_colorspace(unsigned int wanted) override;
    unsigned int encoder_output_format() override;
    int configure_encoder_input_properties(
        const tnMediaRecord& input, RObject<Quillon::Orb::CVideoProperties>& properties) override;
    bool encoder_can_pad_for_strict_cbr() override;

private:
    const unsigned int fComponent;
    const unsigned int fFormat;
    RObject<Quillon::Orb::CVideoProperties> fEncoderInput;
};
