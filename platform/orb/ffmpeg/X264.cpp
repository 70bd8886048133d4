#include "X264.h"

#include <algorithm>
#include <cstring>

namespace Quillon::Orb {

namespace {

constexpr int kConstantQuality = 23;
constexpr const char* kPyramids[] = {"none", "strict", "normal"};

Result check(const VideoShape& shape, const X264Settings& settings) {
    const int rows = shape.IsInterlaced() ? 4 : 2;
    if (shape.width % 2 != 0 || shape.height % rows != 0) {
        return ResultInvalidArgument(
            "%d x %d: H.264 in 4:2:0 wants an even width and a height in steps of %d", shape.width,
            shape.height, rows);
    }
    if (std::strcmp(settings.profile, "baseline") == 0) {
        if (shape.IsInterlaced())
            return ResultInvalidArgument("baseline has no interlaced pictures");
        if (settings.bFrames > 0) return ResultInvalidArgument("baseline has no B-frames");
    }
    return 0;
}

}  // namespace

Result OpenX264(const VideoShape& shape, const X264Settings& settings, AvOpenedEncoder& opened) {
    Result result = check(shape, settings);
    if (result.Failed()) return result;
    const bool isPlanar = shape.format == 'I420' || shape.format == 'YV12';
    const AVPixelFormat pixels = isPlanar ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_NV12;
    result = MakeEncoderContext("libx264", shape, pixels, opened.context);
    if (result.Failed()) return result;
    opened.pixels = pixels;

    AVCodecContext& context = *opened.context;
    context.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    context.thread_count = settings.threads;
    context.max_b_frames = settings.bFrames;
    context.gop_size = settings.keyFrameInterval;
    const int most = settings.maximumBitRate > 0 ? settings.maximumBitRate : settings.bitRate;
    context.bit_rate = settings.bitRate > 0 ? std::min(settings.bitRate, most) : 0;
    context.rc_max_rate = most;
    context.rc_buffer_size = most;

    AvOptions options;
    options.Set("preset", settings.preset);
    options.Set("profile", settings.profile);
    options.Set("b-pyramid", kPyramids[settings.bPyramid]);
    options.Set("forced-idr", 1);
    // Times stay outside of the encoder, so that its clock is the nominal rate and may be called
    // fixed: readers that have nothing but the stream then know the rate.
    options.Set("x264-params", "force-cfr=1");
    if (context.bit_rate == 0) options.Set("crf", kConstantQuality);
    return OpenEncoderContext(context, options);
}

int H264PictureType(const AVPacket& packet) {
    if (packet.flags & AV_PKT_FLAG_KEY) return CVideoSample::kKeyPicture;
    const unsigned char* end = packet.data + packet.size;
    for (const unsigned char* at = packet.data; at + 3 < end; ++at) {
        if (at[0] != 0 || at[1] != 0 || at[2] != 1) continue;
        const int type = at[3] & 31;
        if (type < 1 || type > 5) continue;
        return at[3] >> 5 & 3 ? CVideoSample::kReferencePicture : CVideoSample::kDisposablePicture;
    }
    return CVideoSample::kReferencePicture;
}

}  // namespace Quillon::Orb
