#include "tarn/filters/tnMjpegVideoCompressor.h"

#include <string>

#include "orb/CodeBookProperty.h"
#include "orb/IProperties.h"

using namespace Quillon::Orb;

namespace {

int quality_of(const tnMediaRecord& output) {
    const std::string name = output.AsString("codec_quality", "");
    if (name == "mjpeg_best") return 98;
    if (name == "mjpeg_medium") return 75;
    if (name == "mjpeg_low") return 55;
    return 88;
}

}  // namespace

tnMjpegVideoCompressor::tnMjpegVideoCompressor() : tnComponentVideoCompressor('mjpg', 'jpeg') {}

tnMjpegVideoCompressor::~tnMjpegVideoCompressor() = default;

void tnMjpegVideoCompressor::configure_component(const tnMediaRecord& output,
                                                 IProperties& component) {
    component.SetProperty(CodeBookProperty::JpegCompressor::Quality, quality_of(output));
}
