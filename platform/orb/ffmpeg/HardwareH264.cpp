#include "HardwareH264.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <unistd.h>
#include <utility>

extern "C" {
#include <libavutil/hwcontext.h>
}

namespace Quillon::Orb {

namespace {

/// What differs from one family of hardware encoders to the next.
struct Family {
    const char* encoder;
    const char* baseline;  ///< its name for the baseline profile
    const char* nodes;     ///< device nodes without which there is no need to ask; null: just ask
    int firstNode;
    AVHWDeviceType device;  ///< frames are uploaded to it; none: it reads main memory
    bool interlaced;
};

constexpr Family kVaapi{"h264_vaapi", "constrained_baseline", "/dev/dri/renderD",
                        128,          AV_HWDEVICE_TYPE_VAAPI, false};
constexpr Family kNvenc{"h264_nvenc", "baseline", nullptr, 0, AV_HWDEVICE_TYPE_NONE, true};
constexpr Family kQuickSync{"h264_qsv", "baseline", "/dev/dri/renderD", 128, AV_HWDEVICE_TYPE_NONE,
                            false};
constexpr Family kV4l2{"h264_v4l2m2m", "baseline", "/dev/video", 0, AV_HWDEVICE_TYPE_NONE, false};

constexpr int kNodes = 64;
constexpr int kUploadFrames = 16;  // more than any of these encoders holds back without B-frames

/// The first readable and writable node of a family; empty where there is none.
std::string find_node(const Family& family) {
    for (int i = 0; i < kNodes; ++i) {
        std::string path = family.nodes + std::to_string(family.firstNode + i);
        if (access(path.c_str(), R_OK | W_OK) == 0) return path;
    }
    return {};
}

/// A pool of device frames that pictures are copied into.
Result make_upload_frames(const Family& family, const std::string& node, AvOpenedEncoder& opened) {
    AVBufferRef* made = nullptr;
    const int code = av_hwdevice_ctx_create(&made, family.device, node.c_str(), nullptr, 0);
    AvBuffer device(made);
    if (code < 0) {
        return ResultNotSupported("%s: %s", node.c_str(), AvErrorText(code).c_str());
    }
    AvBuffer frames(av_hwframe_ctx_alloc(device.get()));
    if (!frames) return ResultOutOfMemory();
    AVHWFramesContext& pool = *reinterpret_cast<AVHWFramesContext*>(frames->data);
    pool.format = opened.context->pix_fmt;
    pool.sw_format = AV_PIX_FMT_NV12;
    pool.width = opened.context->width;
    pool.height = opened.context->height;
    pool.initial_pool_size = kUploadFrames;
    const int started = av_hwframe_ctx_init(frames.get());
    if (started < 0) {
        return ResultNotSupported("%s: %s", node.c_str(), AvErrorText(started).c_str());
    }
    opened.context->hw_frames_ctx = av_buffer_ref(frames.get());
    if (!opened.context->hw_frames_ctx) return ResultOutOfMemory();
    opened.upload = std::move(frames);
    return 0;
}

const char* profile_name(const Family& family, int profile) {
    if (profile == 66) return family.baseline;
    return profile == 77 ? "main" : "high";
}

/// Opens the family's encoder on the node that it needs.
Result open_encoder(const Family& family, const std::string& node, const VideoShape& shape,
                    const HardwareH264Settings& settings, AvOpenedEncoder& opened) {
    const bool uploads = family.device != AV_HWDEVICE_TYPE_NONE;
    Result made = MakeEncoderContext(family.encoder, shape,
                                     uploads ? AV_PIX_FMT_VAAPI : AV_PIX_FMT_NV12, opened.context);
    if (made.Succeeded() && uploads) made = make_upload_frames(family, node, opened);
    if (made.Failed()) return made;

    AVCodecContext& context = *opened.context;
    context.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    context.max_b_frames = 0;
    context.gop_size = settings.keyFrameInterval;
    const int most = settings.maximumBitRate > 0 ? settings.maximumBitRate : settings.bitRate;
    context.bit_rate = std::min(settings.bitRate, most);
    context.rc_max_rate = most;
    context.rc_buffer_size = most;
    AvOptions options;
    options.Set("profile", profile_name(family, settings.profile));
    // Each family has its own name for "a forced key picture is an IDR picture".
    options.Set("forced-idr", 1);
    options.Set("forced_idr", 1);
    opened.pixels = AV_PIX_FMT_NV12;
    opened.hardware = true;
    return OpenEncoderContext(context, options);
}

Result open_family(const Family& family, const VideoShape& shape,
                   const HardwareH264Settings& settings, AvOpenedEncoder& result) {
    std::string node;
    if (family.nodes) node = find_node(family);
    if (family.nodes && node.empty()) return ResultNotSupported("no device %s*", family.nodes);
    if (shape.IsInterlaced() && !family.interlaced) {
        return ResultNotSupported("%s takes no interlaced pictures", family.encoder);
    }
    AvOpenedEncoder opened;
    Result made = open_encoder(family, node, shape, settings, opened);
    if (made.Succeeded() && opened.context->extradata_size < 1) {
        std::vector<unsigned char> sets;
        made = LearnParameterSets(opened, sets);
        opened = {};  // some devices open once at a time
        if (made.Succeeded()) made = open_encoder(family, node, shape, settings, opened);
        opened.parameterSets = std::move(sets);
    }
    if (made.Succeeded()) result = std::move(opened);
    return made;
}

/// A grey picture, on the device where the encoder reads from one.
Result make_grey_frame(const AvOpenedEncoder& encoder, AvFrame& frame) {
    AvFrame grey(av_frame_alloc());
    frame.reset(av_frame_alloc());
    if (!grey || !frame) return ResultOutOfMemory();
    grey->format = encoder.pixels;
    grey->width = encoder.context->width;
    grey->height = encoder.context->height;
    if (av_frame_get_buffer(grey.get(), 0) < 0) return ResultOutOfMemory();
    for (int i = 0; i < AV_NUM_DATA_POINTERS && grey->buf[i]; ++i) {
        std::memset(grey->buf[i]->data, 128, grey->buf[i]->size);
    }
    if (!encoder.upload) {
        frame = std::move(grey);
        return 0;
    }
    int code = av_hwframe_get_buffer(encoder.upload.get(), frame.get(), 0);
    if (code >= 0) code = av_hwframe_transfer_data(frame.get(), grey.get(), 0);
    if (code < 0) return ResultNotSupported("no upload: %s", AvErrorText(code).c_str());
    return 0;
}

}  // namespace

Result LearnParameterSets(AvOpenedEncoder& encoder, std::vector<unsigned char>& sets) {
    AvFrame frame;
    Result made = make_grey_frame(encoder, frame);
    if (made.Failed()) return made;
    frame->pts = 0;
    AVCodecContext* context = encoder.context.get();
    AvPacket packet(av_packet_alloc());
    if (!packet) return ResultOutOfMemory();
    avcodec_send_frame(context, frame.get());
    avcodec_send_frame(context, nullptr);
    while (avcodec_receive_packet(context, packet.get()) >= 0) {
        sets.insert(sets.end(), packet->data, packet->data + packet->size);
        av_packet_unref(packet.get());
    }
    if (sets.empty()) return ResultNotSupported("%s gives nothing", context->codec->name);
    return 0;
}

Result OpenHardwareH264(const VideoShape& shape, const HardwareH264Settings& settings,
                        AvOpenedEncoder& opened) {
    std::string reasons;
    for (const Family* family : {&kVaapi, &kNvenc, &kQuickSync, &kV4l2}) {
        Result result = open_family(*family, shape, settings, opened);
        if (result.Succeeded()) return result;
        reasons += reasons.empty() ? "" : "; ";
        reasons += result.GetMessage();
    }
    return ResultNotSupported("no hardware encoder: %s", reasons.c_str());
}

Result OpenNvencH264(const VideoShape& shape, const HardwareH264Settings& settings,
                     AvOpenedEncoder& opened) {
    return open_family(kNvenc, shape, settings, opened);
}

}  // namespace Quillon::Orb
