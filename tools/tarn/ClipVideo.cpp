#include "ClipVideo.h"

extern "C" {
#include <libavutil/display.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fmt/format.h>
#include <limits>
#include <utility>
#include <vector>

#include "orb/CVideoProperties.h"
#include "orb/CVideoSample.h"
#include "tarn/foundation/tnRasterType.h"
#include "tarn/writers/orbConversions.h"

#include "AvTrack.h"
#include "ClipScaler.h"
#include "clipColour.h"
#include "recordLimits.h"

using namespace Quillon::Orb;

namespace {

// An average over a clip is a fraction of any numbers.
constexpr long long kLargestRateTerm = 1'000'000;

struct RawFormat {
    AVPixelFormat av;
    int raster;
    bool fullRange;
};

// What travels as it is. Everything else is converted to the nearest of these.
constexpr RawFormat kRawFormats[] = {
    {AV_PIX_FMT_YUV420P, 'I420', false}, {AV_PIX_FMT_YUVJ420P, 'I420', true},
    {AV_PIX_FMT_NV12, 'NV12', false},    {AV_PIX_FMT_UYVY422, '2vuy', false},
    {AV_PIX_FMT_YUYV422, 'yuvs', false}, {AV_PIX_FMT_BGRA, 'rgba', true},
};

AVPixelFormat format_of_raster(int raster) {
    for (const RawFormat& known : kRawFormats) {
        if (known.raster == raster) return known.av;
    }
    return AV_PIX_FMT_NONE;
}

const RawFormat* raw_format_of(AVPixelFormat format) {
    for (const RawFormat& known : kRawFormats) {
        if (known.av == format) return &known;
    }
    return nullptr;
}

AVPixelFormat nearest_raw_format(AVPixelFormat format) {
    if (raw_format_of(format)) return format;
    const AVPixFmtDescriptor* shape = av_pix_fmt_desc_get(format);
    // A palette's colours are sharp from pixel to pixel and of no matrix, as those of RGB are.
    constexpr unsigned int kColours = AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL;
    if (!shape || (shape->flags & kColours) != 0) return AV_PIX_FMT_BGRA;
    const bool halfHeight = shape->log2_chroma_h > 0 || shape->nb_components < 3;
    return halfHeight ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_UYVY422;
}

/// A decoded picture handed on where it lies; the decoder's buffer is held as long as this lives.
class AvFramePixels final : public CPixelDataReference {
public:
    AvFramePixels(const AVFrame& frame, int length)
        : fFrame(av_frame_clone(&frame)), fLength(length) {}

    Result Lock(int) override { return ResultOK(nullptr); }
    void Unlock() override {}
    unsigned char* GetData() override { return fFrame->data[0]; }
    int GetStride() override { return fFrame->linesize[0]; }
    int GetLength() override { return fLength; }
    int GetWidth() override { return fFrame->width; }
    int GetHeight() override { return fFrame->height; }

private:
    AvHandle<AVFrame> fFrame;
    int fLength;
};

/// Whether the planes lie one behind the other, chroma at half the pitch, as one buffer.
bool lies_in_one_piece(const AVFrame& frame, int raster) {
    const int pitch = frame.linesize[0];
    if (pitch <= 0) return false;
    if (raster == 'I420') {
        const int half = pitch / 2;
        const int chromaRows = (frame.height + 1) / 2;
        return pitch % 2 == 0 && frame.height % 2 == 0 && frame.linesize[1] == half &&
               frame.linesize[2] == half && frame.data[1] == frame.data[0] + pitch * frame.height &&
               frame.data[2] == frame.data[1] + half * chromaRows;
    }
    if (raster == 'NV12') {
        return frame.linesize[1] == pitch && frame.data[1] == frame.data[0] + pitch * frame.height;
    }
    return true;
}

/// What a display matrix, or none, does to a picture; empty when it does nothing.
std::string shown_as(const int32_t* matrix) {
    if (!matrix) return "";
    const auto product = [matrix](int a, int b) {
        return static_cast<long long>(matrix[a]) * matrix[b];
    };
    if (product(0, 4) < product(1, 3)) return "mirrored";
    const double turned = av_display_rotation_get(matrix);
    const long degrees = std::isnan(turned) ? 0 : std::labs(std::lround(turned));
    return degrees == 0 ? "" : fmt::format("turned by {} degrees", degrees);
}

class AvClipVideo final : public ClipVideo {
public:
    bool Open(const std::string& path, int width, int height, std::string& error, int raster);

    const tnMediaRecord& Format() const override { return fFormat; }
    Rate FrameRate() const override { return {fRate.num, fRate.den}; }
    double StartSeconds() const override { return fStartSeconds; }
    double HeaderSeconds() const override { return fTrack.HeaderSeconds(); }
    bool Next(ClipFrame& frame) override;
    std::string Problem() const override { return fProblem; }
    bool GaveUp() const override { return fTrack.GaveUp(); }
    std::vector<std::string> Cautions() const override { return fCautions; }

private:
    void describe_time();
    void describe_picture(int width, int height);
    void describe_fields();
    void describe_aspect();
    void set_target();
    void look_for_trouble(const std::string& path);
    const int32_t* display_matrix() const;
    long long ticks_of(long long pts) const;
    void fill_pixels(ClipFrame& frame);
    void convert_pixels(ClipFrame& frame);

    AvTrack fTrack;
    AvHandle<AVFrame> fDecoded{av_frame_alloc()};
    bool fHasFirst = false;  // it waits in fDecoded: it tells what the header does not
    ClipScaler fScaler;
    RObject<CVideoProperties> fProperties;
    tnMediaRecord fFormat{TN_MEDIA_VIDEO};
    AVPixelFormat fTarget = AV_PIX_FMT_NONE;
    bool fLooks = false;
    AVRational fRate{1, 1};  // pictures a second
    AVRational fTick{1, 1};  // seconds in one tick of what is handed on
    long long fNominal = 1;  // ticks of a frame whose length nobody tells
    double fStartSeconds = 0;
    long long fFirstPts = AV_NOPTS_VALUE;
    long long fLastPts = 0;
    long long fNextPts = 0;
    std::string fProblem;
    std::vector<std::string> fCautions;
};

bool AvClipVideo::Open(const std::string& path, int width, int height, std::string& error,
                       int raster) {
    if (!fTrack.Open(path, AVMEDIA_TYPE_VIDEO, error)) {
        if (error.empty()) {
            error = fmt::format(
                "'{}': has no picture; give a clip that has one, or record its sound alone: tarn "
                "record --video none",
                path);
        }
        return false;
    }
    const AVCodecParameters& coded = *fTrack.stream->codecpar;
    width = width > 0 ? width : coded.width;
    height = height > 0 ? height : coded.height;
    if (width <= 0 || height <= 0) {
        error = fmt::format("'{}': not one of its pictures can be decoded; is it whole?", path);
        return false;
    }
    if (std::min(width, height) < kSmallestSide || std::max(width, height) > kLargestSide) {
        error = fmt::format(
            "'{}': pictures of {}x{} are out of range; sides from {} to {} can be recorded", path,
            width, height, kSmallestSide, kLargestSide);
        return false;
    }
    fTarget = format_of_raster(raster);
    // Asked for by who looks at the pixels and does not record them; an order faster.
    fLooks = fTarget != AV_PIX_FMT_NONE;
    fHasFirst = fTrack.Decode(*fDecoded);
    describe_time();
    describe_picture(width, height);
    describe_fields();
    describe_aspect();
    set_target();
    look_for_trouble(path);
    if (!MediaRecordToVideoProperties(fFormat, fProperties)) {
        error = fmt::format("'{}': its picture format cannot be described; convert the clip", path);
        return false;
    }
    return true;
}

// Ticks are those of the clip where its time base is one over a whole number, else of its frame
// rate.
void AvClipVideo::describe_time() {
    const AVRational base = fTrack.stream->time_base;
    AVRational rate = av_guess_frame_rate(fTrack.file.get(), fTrack.stream, nullptr);
    if (rate.num <= 0 || rate.den <= 0) rate = {25, 1};
    av_reduce(&fRate.num, &fRate.den, rate.num, rate.den, kLargestRateTerm);
    fTick = base.num == 1 ? base : AVRational{1, rate.num};
    fNominal = std::max<long long>(1, av_rescale_q(1, av_inv_q(rate), fTick));
    fFormat.SetInt64('tmsc', fTick.den, 0);
    fFormat.SetUInt64('dura', static_cast<unsigned long long>(fNominal), 0);
    fFormat.SetFloat('mfps', static_cast<float>(av_q2d(rate)), 0);
}

void AvClipVideo::describe_picture(int width, int height) {
    const AVCodecParameters& coded = *fTrack.stream->codecpar;
    const AVPixelFormat source = static_cast<AVPixelFormat>(coded.format);
    if (fTarget == AV_PIX_FMT_NONE) fTarget = nearest_raw_format(source);
    const RawFormat& raw = *raw_format_of(fTarget);

    fFormat.fWidth.SetInt32(width);
    fFormat.fHeight.SetInt32(height);
    fFormat.fColourspace.SetInt32(raw.raster);
    fFormat.SetBytesPerRowBasedOnFormat();
    const bool says601 =
        coded.color_space == AVCOL_SPC_SMPTE170M || coded.color_space == AVCOL_SPC_BT470BG;
    const bool says709 = coded.color_space == AVCOL_SPC_BT709;
    const unsigned int guess = fFormat.GuessColorSpace();
    fFormat.fColorSpace.SetInt32(static_cast<int>(says601 ? 'r601' : says709 ? 'r709' : guess));
    // Who looks at the pixels asks for a raster type and counts on limited range.
    const bool full = raw.fullRange || (!fLooks && IsFullRange(source, coded.color_range));
    fFormat.fNominalRange.SetInt32(full ? 'full' : 'limt');
}

// The pictures know best: containers may be silent, and words for the order of fields differ among
// them. Of the container's two letters the first says which field is shown first.
void AvClipVideo::describe_fields() {
    const AVFieldOrder order = fTrack.stream->codecpar->field_order;
    const bool told = fHasFirst && fDecoded->interlaced_frame;
    const bool topFirst =
        told ? fDecoded->top_field_first : order == AV_FIELD_TT || order == AV_FIELD_TB;
    const bool bottomFirst =
        told ? !fDecoded->top_field_first : order == AV_FIELD_BB || order == AV_FIELD_BT;
    fFormat.fFieldOrder.SetInt32(topFirst      ? TN_FIELD_INTERLACED_2
                                 : bottomFirst ? TN_FIELD_INTERLACED_3
                                               : TN_FIELD_PROGRESSIVE);
}

// Whatever the size, the picture is shown in the clip's own shape.
void AvClipVideo::describe_aspect() {
    const AVCodecParameters& coded = *fTrack.stream->codecpar;
    const int width = fFormat.fWidth.AsInt32(0);
    const int height = fFormat.fHeight.AsInt32(0);
    AVRational aspect = av_guess_sample_aspect_ratio(fTrack.file.get(), fTrack.stream, nullptr);
    if (aspect.num <= 0 || aspect.den <= 0) aspect = {1, 1};
    if (coded.width <= 0 || coded.height <= 0) return;
    const long long square = av_rescale(height, static_cast<long long>(coded.width) * aspect.num,
                                        static_cast<long long>(coded.height) * aspect.den);
    // A size is of whole pixels: 854x480 is meant to be 16:9 with square ones.
    const bool isScaled = width != coded.width || height != coded.height;
    const bool isSquare = isScaled ? std::abs(square - width) <= 1 : aspect.num == aspect.den;
    if (isSquare || square < 1 || square > std::numeric_limits<int>::max()) return;
    fFormat.SetInt32('tnSQ', static_cast<int>(square), 0);
    fFormat.SetInt32('tnSH', height, 0);
}

void AvClipVideo::set_target() {
    ClipScaler::Target target;
    target.width = fFormat.fWidth.AsInt32(0);
    target.height = fFormat.fHeight.AsInt32(0);
    target.format = fTarget;
    target.fullRange = fFormat.fNominalRange.AsInt32(0) == 'full';
    target.interlaced = fFormat.fFieldOrder.AsInt32(0) != TN_FIELD_PROGRESSIVE;
    // Who looks at the pixels looks at how bright they are.
    const int matrix = MatrixToLeave(fTrack.stream->codecpar->color_space);
    if (matrix != 0 && fTarget != AV_PIX_FMT_BGRA && !fLooks) {
        target.fromMatrix = matrix;
        target.toMatrix = fFormat.fColorSpace.AsInt32(0) == 'r601' ? SWS_CS_ITU601 : SWS_CS_ITU709;
    }
    target.flags = fLooks ? SWS_POINT : SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INP;
    fScaler.SetTarget(target);
}

/// How the pictures are to be turned for display; null where they are not.
const int32_t* AvClipVideo::display_matrix() const {
    const AVFrameSideData* own =
        fHasFirst ? av_frame_get_side_data(fDecoded.get(), AV_FRAME_DATA_DISPLAYMATRIX) : nullptr;
    const uint8_t* matrix =
        own ? own->data
            : av_stream_get_side_data(fTrack.stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr);
    return reinterpret_cast<const int32_t*>(matrix);
}

void AvClipVideo::look_for_trouble(const std::string& path) {
    const AVCodecParameters& coded = *fTrack.stream->codecpar;
    const std::string colour = ColourTrouble(coded.color_space, coded.color_trc);
    if (!colour.empty()) fCautions.push_back(fmt::format("'{}': {}", path, colour));
    const std::string shown = shown_as(display_matrix());
    if (shown.empty()) return;
    fCautions.push_back(
        fmt::format("'{}': is meant to be shown {}, and is recorded as its pixels lie; turn it "
                    "first, as any conversion by ffmpeg does",
                    path, shown));
}

long long AvClipVideo::ticks_of(long long pts) const {
    return av_rescale_q(pts, fTrack.stream->time_base, fTick);
}

bool AvClipVideo::Next(ClipFrame& frame) {
    if (!std::exchange(fHasFirst, false) && !fTrack.Decode(*fDecoded)) {
        fProblem = fTrack.EndedEarly();
        return false;
    }
    long long pts = fDecoded->best_effort_timestamp;
    // Damaged clips step back in time, where nobody can follow.
    const bool stepsBack = fFirstPts != AV_NOPTS_VALUE && pts <= fLastPts;
    if (pts == AV_NOPTS_VALUE || stepsBack) pts = fNextPts;
    fLastPts = pts;
    if (fFirstPts == AV_NOPTS_VALUE) {
        fFirstPts = pts;
        fStartSeconds = static_cast<double>(pts) * av_q2d(fTrack.stream->time_base);
    }
    const long long length = fDecoded->pkt_duration > 0
                                 ? fDecoded->pkt_duration
                                 : av_rescale_q(fNominal, fTick, fTrack.stream->time_base);
    fNextPts = pts + std::max<long long>(1, length);
    frame.time = ticks_of(pts - fFirstPts);
    frame.duration = std::max<long long>(1, ticks_of(length));
    fill_pixels(frame);
    if (!frame.pixels) {
        fProblem =
            fmt::format("has a picture of {}x{} that cannot be converted to {}x{}", fDecoded->width,
                        fDecoded->height, fFormat.fWidth.AsInt32(0), fFormat.fHeight.AsInt32(0));
    }
    av_frame_unref(fDecoded.get());
    return static_cast<bool>(frame.pixels);
}

void AvClipVideo::fill_pixels(ClipFrame& frame) {
    if (fScaler.IsThere(*fDecoded) &&
        lies_in_one_piece(*fDecoded, fFormat.fColourspace.AsInt32(0))) {
        const int rows = tnRasterType::RowCount(fDecoded->height, fFormat.fColourspace.AsInt32(0));
        frame.pixels = RObject<CPixelDataReference>(
            new AvFramePixels(*fDecoded, fDecoded->linesize[0] * rows));
        return;
    }
    convert_pixels(frame);
}

void AvClipVideo::convert_pixels(ClipFrame& frame) {
    RObject<CVideoSample> sample;
    if (CreateCPUVideoSample(sample, fProperties.Get()).Failed()) return;
    RObject<CPixelDataReference> pixels(sample->GetDataReference<CPixelDataReference>());
    const int height = fFormat.fHeight.AsInt32(0);
    const int raster = fFormat.fColourspace.AsInt32(0);

    uint8_t* planes[4] = {static_cast<uint8_t*>(pixels->GetData()), nullptr, nullptr, nullptr};
    int pitches[4] = {pixels->GetStride(), 0, 0, 0};
    const int chromaRows = (height + 1) / 2;
    if (raster == 'I420') {
        pitches[1] = pitches[2] = pitches[0] / 2;
        planes[1] = planes[0] + pitches[0] * height;
        planes[2] = planes[1] + pitches[1] * chromaRows;
    } else if (raster == 'NV12') {
        pitches[1] = pitches[0];
        planes[1] = planes[0] + pitches[0] * height;
    }
    if (fScaler.Scale(*fDecoded, planes, pitches)) frame.pixels = pixels;
}

}  // namespace

Rate ClipVideo::FrameRate() const {
    return {Format().AsInt64('tmsc', 1), Format().AsInt64('dura', 1)};
}

std::unique_ptr<ClipVideo> ClipVideo::Open(const std::string& path, int width, int height,
                                           std::string& error, int raster) {
    auto clip = std::make_unique<AvClipVideo>();
    if (!clip->Open(path, width, height, error, raster)) return nullptr;
    return clip;
}
