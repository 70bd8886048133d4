#include "spar/trace.h"

#include "HardwareH264.h"
#include "ProRes.h"
#include "VideoCompressorSupport.h"
#include "X264.h"

namespace Quillon::Orb {

namespace {

namespace Toolbox = CodeBookProperty::VideoToolboxCompressor;
using CodeBookProperty::VideoCompressor::BitRate;
using CodeBookProperty::VideoCompressor::Threads;

// The same formats for all outputs, in another order: hosts ask what goes in before they say for
// the last time what shall come out.
//
// Hardware reads NV12 alone. What else comes is worked over once in here, which costs what the
// converter in front would.
constexpr unsigned int kH264Formats[] = {kHardwareFormat, 'I420', 'YV12', 'UYVY',
                                         'YUYV',          'I422', 'YV16', 'BGRA'};
// ProRes wants 10 bits, so that every format is worked over once: packed 4:2:2 has the least to do,
// and what has its chroma computed gets two more bits of it than by way of an 8-bit format.
constexpr unsigned int kProResFormats[] = {'UYVY', 'YUYV', 'I422', 'YV16',
                                           'I420', 'YV12', 'NV12', 'BGRA'};
constexpr int kMostThreads = 64;
constexpr int kMostChosenThreads = 16;
constexpr int kLongestInterval = 100000;
constexpr int kLowestBitRate = 1000;
constexpr int kHighestBitRate = 2000000000;

/// 'vtbx': what the platform itself encodes with: H.264 in hardware where there is any, else in
/// software, and ProRes, which is software here.
class PlatformCompressor final : public AvVideoEncoder {
public:
    static constexpr unsigned int kCode = 'vtbx';

    PlatformCompressor() : AvVideoEncoder(kCode) {
        DeclareInt(Toolbox::Profile, 77, 66, 100);
        DeclareInt(Toolbox::KeyFrameInterval, X264Settings().keyFrameInterval, 1, kLongestInterval);
        DeclareInt(Toolbox::MaximumBitrate, 0, 0, kHighestBitRate);
        DeclareInt(BitRate, 0, 0, kHighestBitRate);
        DeclareInt(Threads, 0, 0, kMostThreads);
    }

    CValueList<unsigned int>* GetOutputFormats() override {
        return new CValueList<unsigned int>{'h264', 'avc1', 'apcn', 'apch', 'apcs', 'apco', 'ap4h'};
    }

protected:
    Result AcceptProperty(const PropertyName& name, const PropertyValue& value) override {
        if (name == Toolbox::Profile && value.integer != 66 && value.integer != 77 &&
            value.integer != 100) {
            return ResultInvalidArgument("it is 66, 77 or 100");
        }
        const bool isRate = name == BitRate || name == Toolbox::MaximumBitrate;
        if (isRate && value.integer > 0 && value.integer < kLowestBitRate) {
            return ResultInvalidArgument("it is 0 or %d and more bits per second", kLowestBitRate);
        }
        return AvVideoEncoder::AcceptProperty(name, value);
    }

    Formats InputFormats() const override {
        if (IsProRes(GetOutputFormat())) return {kProResFormats, 8};
        return {kH264Formats, 8};
    }
    unsigned int DefaultOutputFormat() const override { return 'h264'; }

    Result Open(const VideoShape& shape, AvOpenedEncoder& opened) override {
        const unsigned int format = GetOutputFormat();
        if (IsProRes(format)) {
            return OpenProRes(shape, format, ThreadCount(GetInt(Threads), kMostChosenThreads),
                              opened);
        }
        HardwareH264Settings hardware;
        hardware.profile = GetInt(Toolbox::Profile);
        hardware.bitRate = GetInt(BitRate);
        hardware.maximumBitRate = GetInt(Toolbox::MaximumBitrate);
        hardware.keyFrameInterval = GetInt(Toolbox::KeyFrameInterval);
        Result result = OpenHardwareH264(shape, hardware, opened);
        if (result.Succeeded()) return result;
        zTrace("{}: {}; encoding in software\n", GetOwnerName(), result.GetMessage());

        X264Settings software;
        software.profile = hardware.profile == 66   ? "baseline"
                           : hardware.profile == 77 ? "main"
                                                    : "high";
        software.threads = GetInt(Threads);
        software.bitRate = hardware.bitRate;
        software.maximumBitRate = hardware.maximumBitRate;
        software.keyFrameInterval = hardware.keyFrameInterval;
        return OpenX264(shape, software, opened);
    }

    int FinishPacket(const AVCodecContext& context, const AVPacket& packet,
                     CByteArray& bytes) const override {
        if (context.codec_id != AV_CODEC_ID_PRORES) return H264PictureType(packet);
        StampProResFrame(context, bytes);
        return CVideoSample::kKeyPicture;
    }
};

}  // namespace

void RegisterPlatformCompressor() {
    AddVideoCompressor<PlatformCompressor>();
}

}  // namespace Quillon::Orb
