#include "tarn/filters/tnComponentVideoCompressor.h"

#include "orb/CComponentInventory.h"
#include "orb/VideoFormat.h"
#include "tarn/writers/orbConversions.h"

using namespace Quillon::Orb;

namespace {
constexpr int kNoComponent = -1;
}

tnComponentVideoCompressor::tnComponentVideoCompressor(unsigned int component,
                                                       unsigned int outputFormat)
    : fComponent(component), fFormat(outputFormat) {}

tnComponentVideoCompressor::~tnComponentVideoCompressor() = default;

int tnComponentVideoCompressor::create_orb_compressor(const zRecord&) {
    // By what is really made, and not by the name alone under which a host asks for it.
    fIsH264 = VideoFormat::GetCanonicalFormat(fFormat) == 'h264';
    fEncoder = CComponentInventory<CComponentFactory<CVideoCompressor>>::CreateInstance(fComponent);
    return fEncoder ? 0 : kNoComponent;
}

unsigned int tnComponentVideoCompressor::encoder_input_format_for_colorspace(unsigned int wanted) {
    // A component may take other pixels for another output.
    fEncoder->SetOutputFormat(fFormat);
    return tnOrbVideoCompressor::encoder_input_format_for_colorspace(wanted);
}

int tnComponentVideoCompressor::configure_encoder_input_properties(
    const tnMediaRecord&, RObject<CVideoProperties>& properties) {
    // The colour of the record, where it names one, before the one that its size suggests.
    MediaRecordToVideoProperties(properties->GetFormat(), fInputFormat, properties);
    fEncoderInput = properties;
    configure_component(fOutputFormat, *fEncoder);
    return 0;
}

// Asked last before the component begins: the moment to tell it what really enters, since it has
// just been told the shape of the source.
unsigned int tnComponentVideoCompressor::encoder_output_format() {
    fEncoder->SetInputProperties(fEncoderInput.Get());
    return fFormat;
}

bool tnComponentVideoCompressor::encoder_can_pad_for_strict_cbr() {
    return false;
}
