#include "AvSupport.h"

#include "orb/BlockPool.h"
#include "orb/CByteArray.h"

namespace Quillon::Orb {

namespace {

constexpr int kQuieter = 24;  // an error then counts as what only a verbose host prints

void release_bytes(void* opaque, uint8_t*) {
    static_cast<CByteArray*>(opaque)->Release();
}

/// Gives a packet bytes of the block pool. The packet's `opaque` names the array, which tells
/// these packets from those whose bytes libavcodec allocated.
int get_encode_buffer(AVCodecContext*, AVPacket* packet, int) {
    static_assert(BlockPool::kPadding >= AV_INPUT_BUFFER_PADDING_SIZE);
    CByteArray* bytes = new CByteArray(packet->size, 1);
    if (!bytes) return AVERROR(ENOMEM);
    if (bytes->GetData()) {
        packet->buf = av_buffer_create(bytes->GetData(), static_cast<std::size_t>(packet->size),
                                       release_bytes, bytes, 0);
    }
    if (!packet->buf) {
        bytes->Release();
        return AVERROR(ENOMEM);
    }
    packet->data = bytes->GetData();
    packet->opaque = bytes;
    return 0;
}

void set_colour(const VideoShape& shape, AVCodecContext& context) {
    context.color_primaries = static_cast<AVColorPrimaries>(shape.colour.GetPrimaries());
    context.color_trc = static_cast<AVColorTransferCharacteristic>(shape.colour.GetTransfer());
    context.colorspace = static_cast<AVColorSpace>(shape.colour.GetMatrix());
    context.color_range = shape.fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    // All of our formats have chroma on the even columns; interlaced or not, H.264 says so by
    // default and MPEG-2 means it.
    context.chroma_sample_location = AVCHROMA_LOC_LEFT;
}

}  // namespace

std::string AvErrorText(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

Result MakeEncoderContext(const char* encoder, const VideoShape& shape, AVPixelFormat pixels,
                          AvContext& context) {
    const AVCodec* codec = avcodec_find_encoder_by_name(encoder);
    if (!codec) return ResultNotSupported("this libavcodec has no encoder %s", encoder);
    context.reset(avcodec_alloc_context3(codec));
    if (!context) return ResultOutOfMemory();
    context->log_level_offset = kQuieter;
    context->width = shape.width;
    context->height = shape.height;
    context->pix_fmt = pixels;
    context->framerate = {shape.frameRate.numerator, shape.frameRate.denominator};
    context->time_base = {shape.frameRate.denominator, shape.frameRate.numerator};
    context->sample_aspect_ratio = {shape.pixelAspect.numerator, shape.pixelAspect.denominator};
    set_colour(shape, *context);
    if (shape.IsInterlaced()) {
        context->flags |= AV_CODEC_FLAG_INTERLACED_DCT | AV_CODEC_FLAG_INTERLACED_ME;
        context->field_order = shape.IsTopFieldFirst() ? AV_FIELD_TT : AV_FIELD_BB;
    } else {
        context->field_order = AV_FIELD_PROGRESSIVE;
    }
    if (codec->capabilities & AV_CODEC_CAP_DR1) context->get_encode_buffer = get_encode_buffer;
    return 0;
}

Result OpenEncoderContext(AVCodecContext& context, AvOptions& options) {
    // A failing open forgets what it was for.
    const char* name = context.codec->name;
    const int width = context.width;
    const int height = context.height;
    const int opened = avcodec_open2(&context, context.codec, options.Get());
    if (opened < 0) {
        return ResultError("%s would not open for %d x %d at %d/%d: %s", name, width, height,
                           context.framerate.num, context.framerate.den,
                           AvErrorText(opened).c_str());
    }
    return 0;
}

}  // namespace Quillon::Orb
