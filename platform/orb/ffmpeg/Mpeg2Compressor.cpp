#include <algorithm>

#include "AvVideoEncoder.h"
#include "VideoCompressorSupport.h"

namespace Quillon::Orb {

namespace {

namespace Mpeg2 = CodeBookProperty::MainConceptMpeg2Compressor;
using CodeBookProperty::VideoCompressor::BitRate;
using CodeBookProperty::VideoCompressor::Threads;

constexpr unsigned int kFormats[] = {'I420', 'YV12'};
constexpr int kMostThreads = 64;
constexpr int kMostChosenThreads = 8;
constexpr int kLongestGroup = 600;
constexpr int kMostAnchorDistance = 8;
constexpr int kLowestBitRate = 1000;
constexpr int kHighestBitRate = 400000000;
constexpr int kProfileSimple = 5;
constexpr double kDefaultBitsPerPixel = 0.4;  // 25 Mb/s at 1080p30
constexpr int kUnlimitedSceneChange = 1000000000;

/// What a level allows (ISO/IEC 13818-2, table 8-14): the decoder's buffer in bits.
struct Level {
    int number;
    int bufferBits;
};
constexpr Level kLevels[] = {{4, 9781248}, {6, 7340032}, {8, 1835008}, {10, 475136}};

int buffer_of(int level) {
    for (const Level& known : kLevels) {
        if (known.number == level) return known.bufferBits;
    }
    return kLevels[0].bufferBits;
}

/// The nearest of the rates that the stream can spell. Times are kept outside of the stream, so a
/// rate in between plays at its own pace; only the header rounds it.
AVRational nearest_rate(const AVCodec& codec, AVRational rate) {
    if (!codec.supported_framerates) return rate;
    return codec.supported_framerates[av_find_nearest_q_idx(rate, codec.supported_framerates)];
}

/// 'mcm2': MPEG-2 video, 4:2:0.
class Mpeg2Compressor final : public AvVideoEncoder {
public:
    static constexpr unsigned int kCode = 'mcm2';

    Mpeg2Compressor() : AvVideoEncoder(kCode) {
        DeclareInt(Mpeg2::Profile, 4, 1, kProfileSimple);
        DeclareInt(Mpeg2::Level, 4, 4, 10);
        DeclareInt(BitRate, 0, 0, kHighestBitRate);
        DeclareInt(Mpeg2::M, 3, 1, kMostAnchorDistance);
        DeclareInt(Mpeg2::N, 15, 1, kLongestGroup);
        DeclareInt(Mpeg2::ClosedGopInterval, 0, 0, 1);
        DeclareInt(Threads, 0, 0, kMostThreads);
    }

    CValueList<unsigned int>* GetOutputFormats() override {
        return new CValueList<unsigned int>{'mp2v'};
    }

protected:
    Result AcceptProperty(const PropertyName& name, const PropertyValue& value) override {
        if (name == Mpeg2::Profile && (value.integer == 2 || value.integer == 3)) {
            return ResultInvalidArgument("it is 1 high, 4 main or 5 simple");
        }
        if (name == Mpeg2::Level && value.integer % 2 != 0) {
            return ResultInvalidArgument("it is 4 high, 6 high 1440, 8 main or 10 low");
        }
        if (name == BitRate && value.integer > 0 && value.integer < kLowestBitRate) {
            return ResultInvalidArgument("it is 0 or %d and more bits per second", kLowestBitRate);
        }
        return AvVideoEncoder::AcceptProperty(name, value);
    }

    Formats InputFormats() const override { return {kFormats, 2}; }
    unsigned int DefaultOutputFormat() const override { return 'mp2v'; }

    Result Open(const VideoShape& shape, AvOpenedEncoder& opened) override {
        if (GetInt(Mpeg2::Profile) == kProfileSimple && GetInt(Mpeg2::M) > 1) {
            return ResultInvalidArgument("the simple profile has no B-frames: M is 1");
        }
        if (shape.width % 4096 == 0 || shape.height % 4096 == 0) {
            return ResultInvalidArgument("%d x %d: no side may be a multiple of 4096", shape.width,
                                         shape.height);
        }
        Result result = MakeEncoderContext("mpeg2video", shape, AV_PIX_FMT_YUV420P, opened.context);
        if (result.Failed()) return result;
        opened.pixels = AV_PIX_FMT_YUV420P;
        opened.limitedOnly = true;
        AvOptions options;
        configure(shape, *opened.context, options);
        return OpenEncoderContext(*opened.context, options);
    }

    int FinishPacket(const AVCodecContext&, const AVPacket& packet, CByteArray&) const override {
        if (packet.flags & AV_PKT_FLAG_KEY) return CVideoSample::kKeyPicture;
        constexpr std::size_t kTypeOffset = 4;
        std::size_t size = 0;
        const uint8_t* quality = av_packet_get_side_data(&packet, AV_PKT_DATA_QUALITY_STATS, &size);
        const bool isB = quality && size > kTypeOffset && quality[kTypeOffset] == AV_PICTURE_TYPE_B;
        return isB ? CVideoSample::kDisposablePicture : CVideoSample::kReferencePicture;
    }

private:
    void configure(const VideoShape& shape, AVCodecContext& context, AvOptions& options) const {
        const AVRational wanted = context.framerate;
        context.framerate = nearest_rate(*context.codec, wanted);
        context.time_base = av_inv_q(context.framerate);
        context.color_range = AVCOL_RANGE_MPEG;
        context.profile = GetInt(Mpeg2::Profile);
        context.level = GetInt(Mpeg2::Level);
        context.gop_size = GetInt(Mpeg2::N);
        context.max_b_frames = std::min(GetInt(Mpeg2::M), GetInt(Mpeg2::N)) - 1;
        context.thread_count = ThreadCount(GetInt(Threads), kMostChosenThreads);
        context.thread_type = FF_THREAD_SLICE;

        double rate = GetInt(BitRate);
        if (rate == 0) {
            rate = kDefaultBitsPerPixel * shape.width * shape.height * av_q2d(wanted);
        }
        // The encoder counts in frames of the rate in the header.
        rate *= av_q2d(context.framerate) / av_q2d(wanted);
        context.bit_rate = static_cast<long long>(std::min<double>(rate, kHighestBitRate));
        context.rc_max_rate = context.bit_rate;
        context.rc_buffer_size = buffer_of(context.level);
        // Low rates want a control that reacts sooner than the usual one; but a tolerance below
        // what one picture takes is an error.
        const int bitsOfPicture =
            static_cast<int>(static_cast<double>(context.bit_rate) / av_q2d(context.framerate));
        context.bit_rate_tolerance =
            std::max(std::min(context.bit_rate_tolerance, static_cast<int>(context.bit_rate)),
                     2 * bitsOfPicture);
        if (GetInt(Mpeg2::ClosedGopInterval) == 1) {
            context.flags |= AV_CODEC_FLAG_CLOSED_GOP;
            // A group that may end anywhere could not be closed.
            options.Set("sc_threshold", kUnlimitedSceneChange);
            // Else the encoder closes a group by ending it early, M - 1 pictures or fewer: where M
            // is N no prediction is left.
            options.Set("mpv_flags", "+strict_gop");
        }
    }
};

}  // namespace

void RegisterMpeg2() {
    AddVideoCompressor<Mpeg2Compressor>();
}

}  // namespace Quillon::Orb
