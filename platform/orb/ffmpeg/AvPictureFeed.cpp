#include "AvPictureFeed.h"

#include <utility>

#include "orb/BlockPool.h"

#include "PixelConverter.h"
#include "RawPicture.h"

namespace Quillon::Orb {

namespace {

constexpr int kRowAlignment = 128;  // so that rows of halved chroma keep 64 bytes

/// What libavcodec calls a raw format; none for those that it has no planes for.
AVPixelFormat av_format_of(unsigned int format) {
    switch (format) {
        case 'I420':
        case 'YV12':
            return AV_PIX_FMT_YUV420P;
        case 'NV12':
            return AV_PIX_FMT_NV12;
        default:
            return AV_PIX_FMT_NONE;
    }
}

/// The raw format that a conversion to the encoder's pixels gives; 0 for none.
unsigned int target_of(AVPixelFormat pixels) {
    switch (pixels) {
        case AV_PIX_FMT_YUV420P:
            return 'I420';
        case AV_PIX_FMT_NV12:
            return 'NV12';
        case AV_PIX_FMT_YUV422P10:
            return kPixelI210;
        case AV_PIX_FMT_YUV444P10:
            return kPixelI410;
        default:
            return 0;
    }
}

void give_block(void*, uint8_t* block) {
    BlockPool::Shared().Give(block);
}

void drop_picture(void* picture, uint8_t*) {
    delete static_cast<RawPicture*>(picture);
}

void set_planes(const PixelImage& image, AVFrame& frame) {
    for (int i = 0; i < 3; ++i) {
        frame.data[i] = image.planes[i];
        frame.linesize[i] = image.strides[i];
    }
}

/// What the numbers mean on both sides of a conversion. Y, U and V keep their matrix, whichever it
/// is; only colours of screens need one that can be computed.
Result read_colours(const VideoShape& shape, bool limitedOnly, PixelRequest& request) {
    RObject<CVideoProperties> yuv(new CVideoProperties(nullptr));
    if (!yuv) return ResultOutOfMemory();
    yuv->SetFormat('I420');
    yuv->SetHeight(shape.height);
    yuv->SetColorSpace(shape.colour);
    PixelColour colour;
    Result known = ReadPixelColour(*yuv, colour);

    const PixelFormat* from = FindPixelFormat(shape.format);
    const bool isRgb = from && from->family == PixelFamily::Rgb;
    const bool fullTo = shape.fullRange && !limitedOnly;
    request.fromColour.matrix = colour.matrix;
    request.toColour.matrix = colour.matrix;
    request.fromColour.range = isRgb || shape.fullRange ? PixelRange::Full : PixelRange::Limited;
    request.toColour.range = fullTo ? PixelRange::Full : PixelRange::Limited;
    return isRgb ? known : Result(0);
}

}  // namespace

Result AvPictureFeed::Begin(const VideoShape& shape, AVPixelFormat pixels, bool limitedOnly) {
    fShape = shape;
    fPixels = pixels;
    fPlan.reset();
    if (av_format_of(shape.format) == pixels && !(limitedOnly && shape.fullRange)) return 0;

    PixelRequest request;
    request.from = shape.format;
    request.to = target_of(pixels);
    request.width = shape.width;
    request.height = shape.height;
    Result result = read_colours(shape, limitedOnly, request);
    if (result.Failed()) return result;
    request.scan = shape.IsInterlaced() ? PixelScan::Interlaced : PixelScan::Progressive;
    fTarget = FindPixelFormat(request.to);
    fPlan = PixelPlan::Make(request);
    if (!fPlan || !fTarget) return ResultNotSupported("no way from the input's pixels to these");
    return 0;
}

Result AvPictureFeed::MakeFrame(const CVideoSample& sample, AVFrame& frame) {
    frame.format = fPixels;
    frame.width = fShape.width;
    frame.height = fShape.height;
    frame.interlaced_frame = fShape.IsInterlaced();
    frame.top_field_first = fShape.IsTopFieldFirst();
    // Some encoders write what the frame says, and some what their context says.
    frame.color_primaries = static_cast<AVColorPrimaries>(fShape.colour.GetPrimaries());
    frame.color_trc = static_cast<AVColorTransferCharacteristic>(fShape.colour.GetTransfer());
    frame.colorspace = static_cast<AVColorSpace>(fShape.colour.GetMatrix());
    return fPlan ? convert(sample, frame) : wrap(sample, frame);
}

Result AvPictureFeed::wrap(const CVideoSample& sample, AVFrame& frame) const {
    auto picture = std::make_unique<RawPicture>();
    Result result = picture->Lock(sample, fShape.format, fShape.width, fShape.height);
    if (result.Failed()) return result;
    set_planes(picture->GetImage(), frame);
    frame.buf[0] =
        av_buffer_create(frame.data[0], 1, drop_picture, picture.get(), AV_BUFFER_FLAG_READONLY);
    if (!frame.buf[0]) return ResultOutOfMemory();
    (void)picture.release();  // the frame's buffer owns it now
    return 0;
}

Result AvPictureFeed::convert(const CVideoSample& sample, AVFrame& frame) {
    RawPicture picture;
    Result result = picture.Lock(sample, fShape.format, fShape.width, fShape.height);
    if (result.Failed()) return result;
    const int rowBytes = fTarget->RowBytes(fShape.width);
    const int stride = (rowBytes + kRowAlignment - 1) / kRowAlignment * kRowAlignment;
    Block block(PixelBlockBytes(*fTarget, fShape.width, fShape.height, stride));
    if (!block) return ResultOutOfMemory();
    const PixelImage image = LayOutPixels(*fTarget, block.Get(), fShape.height, stride);
    fPlan->Convert(picture.GetImage(), image);
    set_planes(image, frame);
    frame.buf[0] =
        av_buffer_create(block.Get(), BlockPool::SizeOf(block.Get()), give_block, nullptr, 0);
    if (!frame.buf[0]) return ResultOutOfMemory();
    (void)block.Detach();  // the frame's buffer gives it back
    return 0;
}

}  // namespace Quillon::Orb
