#include <cstring>

#include "VideoCompressorSupport.h"
#include "X264.h"

namespace Quillon::Orb {

namespace {

namespace H264 = CodeBookProperty::H264Compressor;

constexpr unsigned int kFormats[] = {'I420', 'NV12', 'YV12'};
constexpr const char* kProfiles[] = {"baseline", "main", "high"};
constexpr const char* kPresets[] = {"ultrafast", "superfast", "veryfast", "faster",   "fast",
                                    "medium",    "slow",      "slower",   "veryslow", "placebo"};
constexpr int kMostThreads = 128;
constexpr int kMostBFrames = 16;
constexpr int kLongestInterval = 100000;
constexpr int kLowestBitRate = 1000;  // the encoder counts in thousands
constexpr int kHighestBitRate = 2000000000;

template <int N>
Result expect_one_of(const char* const (&names)[N], const PropertyValue& value) {
    for (const char* name : names) {
        if (std::strcmp(name, value.text->GetText()) == 0) return 0;
    }
    return ResultInvalidArgument("it goes from \"%s\" to \"%s\"", names[0], names[N - 1]);
}

/// 'h264': libx264.
class X264Compressor final : public AvVideoEncoder {
public:
    static constexpr unsigned int kCode = 'h264';

    X264Compressor() : AvVideoEncoder(kCode) {
        DeclareString(H264::Profile, "high");
        DeclareString(H264::Preset, "veryfast");
        DeclareInt(H264::Threads, 0, 0, kMostThreads);
        DeclareInt(H264::BitRate, 0, 0, kHighestBitRate);
        DeclareInt(H264::NumBFrames, 0, 0, kMostBFrames);
        DeclareInt(H264::BFramePyramid, 0, 0, 2);
        DeclareInt(H264::MaxKeyFrameInterval, X264Settings().keyFrameInterval, 1, kLongestInterval);
    }

    CValueList<unsigned int>* GetOutputFormats() override {
        return new CValueList<unsigned int>{'h264', 'avc1'};
    }

protected:
    Result AcceptProperty(const PropertyName& name, const PropertyValue& value) override {
        if (name == H264::Profile) return expect_one_of(kProfiles, value);
        if (name == H264::Preset) return expect_one_of(kPresets, value);
        if (name == H264::BitRate && value.integer > 0 && value.integer < kLowestBitRate) {
            return ResultInvalidArgument("it is 0 or %d and more bits per second", kLowestBitRate);
        }
        return AvVideoEncoder::AcceptProperty(name, value);
    }

    Formats InputFormats() const override { return {kFormats, 3}; }
    unsigned int DefaultOutputFormat() const override { return 'h264'; }

    Result Open(const VideoShape& shape, AvOpenedEncoder& opened) override {
        X264Settings settings;
        settings.profile = GetText(H264::Profile);
        settings.preset = GetText(H264::Preset);
        settings.threads = GetInt(H264::Threads);
        settings.bitRate = GetInt(H264::BitRate);
        settings.bFrames = GetInt(H264::NumBFrames);
        settings.bPyramid = GetInt(H264::BFramePyramid);
        settings.keyFrameInterval = GetInt(H264::MaxKeyFrameInterval);
        return OpenX264(shape, settings, opened);
    }

    int FinishPacket(const AVCodecContext&, const AVPacket& packet, CByteArray&) const override {
        return H264PictureType(packet);
    }
};

}  // namespace

void RegisterX264() {
    AddVideoCompressor<X264Compressor>();
}

}  // namespace Quillon::Orb
