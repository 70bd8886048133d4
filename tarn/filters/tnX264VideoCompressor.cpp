#include "tarn/filters/tnX264VideoCompressor.h"

#include <algorithm>
#include <string>

#include "orb/CString.h"
#include "orb/CodeBookProperty.h"
#include "orb/IProperties.h"
#include "tarn/filters/componentSettings.h"

using namespace Quillon::Orb;

namespace {

constexpr int kDefaultInterval = 30;
constexpr int kLongestInterval = 600;
constexpr int kDefaultThreads = 4;

const char* profile_of(const tnMediaRecord& output) {
    switch (output.AsUInt32('mpro', 'high')) {
        case 'base':
            return "baseline";
        case 'main':
            return "main";
        default:
            return "high";
    }
}

}  // namespace

tnX264VideoCompressor::tnX264VideoCompressor() : tnComponentVideoCompressor('h264', 'h264') {}

tnX264VideoCompressor::~tnX264VideoCompressor() = default;

void tnX264VideoCompressor::configure_component(const tnMediaRecord& output,
                                                IProperties& component) {
    namespace Key = CodeBookProperty::H264Compressor;
    const std::string name = output.AsString("encoder_preset", "veryfast");
    const RObject<CString> profile(new CString(profile_of(output)));
    const RObject<CString> preset(new CString(name.c_str()));
    const int interval = output.AsInt32("key_frame_rate", kDefaultInterval);
    const bool baseline = output.AsUInt32('mpro', 'high') == 'base';
    component.SetProperty(Key::Profile, profile.Get());
    component.SetProperty(Key::Preset, preset.Get());
    component.SetProperty(Key::Threads, output.AsInt32("encoder_threads", kDefaultThreads));
    component.SetProperty(Key::BitRate,
                          IsStrictRate(output) ? StrictBitRateOf(output) : BitRateOf(output));
    component.SetProperty(Key::NumBFrames, baseline ? 0 : output.AsInt32("b_frames", 0));
    component.SetProperty(Key::BFramePyramid, 0);
    component.SetProperty(Key::MaxKeyFrameInterval, std::clamp(interval, 1, kLongestInterval));
}
