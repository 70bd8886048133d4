#include "tarn/filters/tnPlatformVideoCompressor.h"

#include "orb/CodeBookProperty.h"
#include "orb/IProperties.h"
#include "tarn/filters/componentSettings.h"

using namespace Quillon::Orb;

namespace {

constexpr int kDefaultInterval = 240;

int profile_of(const tnMediaRecord& output) {
    switch (output.AsUInt32('mpro', 'main')) {
        case 'base':
            return 66;
        case 'high':
            return 100;
        default:
            return 77;
    }
}

}  // namespace

tnPlatformVideoCompressor::tnPlatformVideoCompressor() : tnPlatformVideoCompressor('vtbx') {}

tnPlatformVideoCompressor::tnPlatformVideoCompressor(unsigned int component)
    : tnComponentVideoCompressor(component, 'h264') {}

tnPlatformVideoCompressor::~tnPlatformVideoCompressor() = default;

void tnPlatformVideoCompressor::configure_component(const tnMediaRecord& output,
                                                    IProperties& component) {
    namespace Key = CodeBookProperty::VideoToolboxCompressor;
    component.SetProperty(Key::Profile, profile_of(output));
    component.SetProperty(CodeBookProperty::VideoCompressor::BitRate, BitRateOf(output));
    const int interval = output.AsInt32("key_frame_rate", kDefaultInterval);
    if (interval != 0) component.SetProperty(Key::KeyFrameInterval, interval);
    if (IsStrictRate(output)) component.SetProperty(Key::MaximumBitrate, StrictBitRateOf(output));
}
