#include "HardwareH264.h"
#include "VideoCompressorSupport.h"
#include "X264.h"

namespace Quillon::Orb {

namespace {

namespace Toolbox = CodeBookProperty::VideoToolboxCompressor;
using CodeBookProperty::VideoCompressor::BitRate;

constexpr unsigned int kFormats[] = {kHardwareFormat};
constexpr int kLongestInterval = 100000;
constexpr int kHighestBitRate = 2000000000;

/// Whether the driver and a device that encodes are here. Asked once a process.
bool has_nvenc() {
    static const bool has = [] {
        VideoShape shape;
        shape.format = kHardwareFormat;
        shape.width = 1280;
        shape.height = 720;
        AvOpenedEncoder opened;
        return OpenNvencH264(shape, HardwareH264Settings(), opened).Succeeded();
    }();
    return has;
}

/// 'nven': NVENC and nothing else. Where it cannot work it refuses every output format, which is
/// how hosts tell a missing device from a refused set-up.
class NvencCompressor final : public AvVideoEncoder {
public:
    static constexpr unsigned int kCode = 'nven';

    NvencCompressor() : AvVideoEncoder(kCode) {
        DeclareInt(Toolbox::Profile, 100, 66, 100);
        DeclareInt(Toolbox::KeyFrameInterval, HardwareH264Settings().keyFrameInterval, 1,
                   kLongestInterval);
        DeclareInt(Toolbox::MaximumBitrate, 0, 0, kHighestBitRate);
        DeclareInt(BitRate, 0, 0, kHighestBitRate);
    }

    CValueList<unsigned int>* GetOutputFormats() override {
        return new CValueList<unsigned int>{'h264', 'avc1'};
    }

protected:
    Result AcceptProperty(const PropertyName& name, const PropertyValue& value) override {
        Result result = AvVideoEncoder::AcceptProperty(name, value);
        if (result.Failed()) return result;
        if (name == CodeBookProperty::MediaFilter::OutputFormat && !has_nvenc()) {
            return ResultNotSupported("no NVENC driver or device");
        }
        if (name == Toolbox::Profile && value.integer != 66 && value.integer != 77 &&
            value.integer != 100) {
            return ResultInvalidArgument("it is 66, 77 or 100");
        }
        return result;
    }

    Formats InputFormats() const override { return {kFormats, 1}; }
    unsigned int DefaultOutputFormat() const override { return 'h264'; }

    Result Open(const VideoShape& shape, AvOpenedEncoder& opened) override {
        HardwareH264Settings settings;
        settings.profile = GetInt(Toolbox::Profile);
        settings.bitRate = GetInt(BitRate);
        settings.maximumBitRate = GetInt(Toolbox::MaximumBitrate);
        settings.keyFrameInterval = GetInt(Toolbox::KeyFrameInterval);
        return OpenNvencH264(shape, settings, opened);
    }

    int FinishPacket(const AVCodecContext&, const AVPacket& packet, CByteArray&) const override {
        return H264PictureType(packet);
    }
};

}  // namespace

void RegisterNvenc() {
    AddVideoCompressor<NvencCompressor>();
}

}  // namespace Quillon::Orb
