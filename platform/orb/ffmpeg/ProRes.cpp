#include "ProRes.h"

#include <algorithm>
#include <cstdlib>

namespace Quillon::Orb {

namespace {

// In the order of the encoder's profile numbers.
constexpr unsigned int kKinds[] = {'apco', 'apcs', 'apcn', 'apch', 'ap4h'};
constexpr int kProfile4444 = 4;

// A frame is an 8-byte atom head ('icpf') and then its header (SMPTE RDD 36).
constexpr int kAspectAndRateOffset = 21;

constexpr Rational<int> kRateCodes[] = {
    // from code 1 on
    {24000, 1001}, {24, 1}, {25, 1},  {30000, 1001},  {30, 1},  {50, 1},
    {60000, 1001}, {60, 1}, {100, 1}, {120000, 1001}, {120, 1},
};

int profile_of(unsigned int format) {
    for (int i = 0; i <= kProfile4444; ++i) {
        if (kKinds[i] == format) return i;
    }
    return -1;
}

int rate_code(AVRational rate) {
    int code = 0;
    for (const Rational<int>& known : kRateCodes) {
        ++code;
        if (known.numerator == rate.num && known.denominator == rate.den) return code;
    }
    return 0;
}

/// 1 square pixels, 2 a 4:3 picture, 3 a 16:9 picture, 0 another one. Sizes are cut to whole
/// macroblocks by their makers, so that the picture's aspect is met only roughly.
int aspect_code(const AVCodecContext& context) {
    const AVRational pixel = context.sample_aspect_ratio;
    if (pixel.num == pixel.den) return 1;
    const long long across = static_cast<long long>(context.width) * pixel.num;
    const long long down = static_cast<long long>(context.height) * pixel.den;
    const auto isAbout = [&](int x, int y) {
        return std::llabs(across * y - down * x) * 33 <= down * x;
    };
    if (isAbout(4, 3)) return 2;
    return isAbout(16, 9) ? 3 : 0;
}

}  // namespace

bool IsProRes(unsigned int format) {
    return profile_of(format) >= 0;
}

Result OpenProRes(const VideoShape& shape, unsigned int format, int threads,
                  AvOpenedEncoder& opened) {
    const int profile = profile_of(format);
    if (shape.width % 2 != 0) {
        return ResultInvalidArgument("%d x %d: ProRes wants an even width", shape.width,
                                     shape.height);
    }
    const AVPixelFormat pixels =
        profile == kProfile4444 ? AV_PIX_FMT_YUV444P10 : AV_PIX_FMT_YUV422P10;
    // Of libavcodec's two encoders this one is several times faster, and spends the bits that a
    // grainy picture wants instead of searching for a coarser quantiser.
    Result result = MakeEncoderContext("prores_aw", shape, pixels, opened.context);
    if (result.Failed()) return result;
    AVCodecContext& context = *opened.context;
    context.profile = profile;
    context.codec_tag = __builtin_bswap32(format);
    context.color_range = AVCOL_RANGE_MPEG;
    context.thread_count = threads;
    context.thread_type = FF_THREAD_FRAME;
    opened.pixels = pixels;
    opened.limitedOnly = true;
    AvOptions options;
    return OpenEncoderContext(context, options);
}

void StampProResFrame(const AVCodecContext& context, CByteArray& bytes) {
    if (bytes.GetLength() <= kAspectAndRateOffset) return;
    bytes.GetData()[kAspectAndRateOffset] =
        static_cast<unsigned char>(aspect_code(context) << 4 | rate_code(context.framerate));
}

}  // namespace Quillon::Orb
