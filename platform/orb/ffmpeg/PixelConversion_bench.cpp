#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "PixelReference.h"
#include "PixelRivals.h"

// Every pair of raw formats at 1080p, ours beside libyuv, libswscale (untold, told, told and
// accurate), zimg and, for BGRA to I420, the plain loop. Counters: frames a second, and `err`, the
// largest distance in codes from double precision on flat blocks of legal colours, where the choice
// of a chroma filter plays no part; -1 where it was not looked at (zimg's red, green and blue).
//   orb_ffmpeg_bench --benchmark_filter='BGRA>I420'
// PIXEL_KERNELS=plain|sse|avx2 in the environment takes another set than the best for `ours`.

using namespace Quillon::Orb;

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr int kBlock = 16;  // pixels of a flat block, both ways
constexpr int kRim = 4;     // of these, how many next to another colour are not compared

/// A picture in one aligned block, as samples have them.
class Frame {
public:
    Frame(unsigned int code, int width, int height)
        : fFormat(*FindPixelFormat(code)), fStride((fFormat.RowBytes(width) + 127) & ~127) {
        const std::size_t bytes = PixelBlockBytes(fFormat, width, height, fStride) + 256;
        fBlock.reset(static_cast<unsigned char*>(std::aligned_alloc(64, (bytes + 63) & ~63ull)));
        std::fill_n(fBlock.get(), bytes, static_cast<unsigned char>(0));
        fImage = LayOutPixels(fFormat, fBlock.get(), height, fStride);
    }
    const PixelImage& Image() const { return fImage; }
    const PixelFormat& Format() const { return fFormat; }

private:
    struct Free {
        void operator()(unsigned char* block) const { std::free(block); }
    };
    const PixelFormat& fFormat;
    const int fStride;
    std::unique_ptr<unsigned char, Free> fBlock;
    PixelImage fImage;
};

/// Fills a frame with flat blocks of colours that both sides can hold.
void fill_with_blocks(Frame& frame, const PixelColour& colour, int width, int height) {
    const int columns = (width + kBlock - 1) / kBlock;
    const int rows = (height + kBlock - 1) / kBlock;
    std::minstd_rand random(1);
    Reference::Picture colours;
    for (auto& c : colours.c) c.Resize(columns, rows);
    for (int i = 0; i < columns * rows; ++i) {
        for (auto& c : colours.c) c.values[i] = static_cast<double>(random() >> 8 & 255);
    }
    // Through red, green and blue of full range, so that every colour exists.
    const PixelFormat& format = frame.Format();
    PixelRequest request{'BGRA', format.code, columns, rows, {}, colour, PixelScan::Progressive};
    request.fromColour.range = PixelRange::Full;
    request.to = format.HasChroma() ? kPixelI410 : format.code;
    const Reference::Picture codes = Reference::Convert(request, colours);
    const double unit = format.HasChroma() && format.bits == 8 ? 0.25 : 1.0;
    for (int c = 0; c < Reference::ComponentCount(format); ++c) {
        const int shiftX = c ? format.shiftX : 0, shiftY = c ? format.shiftY : 0;
        for (int y = 0; y < (c ? format.ChromaHeight(height) : height); ++y) {
            for (int x = 0; x < (c ? format.ChromaWidth(width) : width); ++x) {
                const double code = codes.c[c].At((x << shiftX) / kBlock, (y << shiftY) / kBlock);
                Reference::WriteCode(Reference::PlaceOf(format, frame.Image(), c, x, y),
                                     static_cast<int>(code * unit));
            }
        }
    }
}

double worst_error(const PixelRequest& request, const Rivals::Conversion& convert) {
    PixelRequest small = request;
    small.width = 512;
    small.height = 128;
    Frame from(small.from, small.width, small.height), to(small.to, small.width, small.height);
    fill_with_blocks(from, small.fromColour, small.width, small.height);
    convert(from.Image(), to.Image());
    const Reference::Picture wanted = Reference::Convert(
        small, Reference::ReadCodes(from.Format(), from.Image(), small.width, small.height));
    const Reference::Picture got =
        Reference::ReadCodes(to.Format(), to.Image(), small.width, small.height);
    double worst = 0.0;
    for (int c = 0; c < Reference::ComponentCount(to.Format()); ++c) {
        const int shiftX = c ? to.Format().shiftX : 0, shiftY = c ? to.Format().shiftY : 0;
        for (int y = 0; y < got.c[c].height; ++y) {
            for (int x = 0; x < got.c[c].width; ++x) {
                const int px = (x << shiftX) % kBlock, py = (y << shiftY) % kBlock;
                if (px < kRim || px >= kBlock - kRim || py < kRim || py >= kBlock - kRim) continue;
                worst = std::max(worst, std::abs(got.c[c].At(x, y) - wanted.c[c].At(x, y)));
            }
        }
    }
    return worst;
}

using Maker = std::function<Rivals::Conversion(const PixelRequest&)>;

void run(benchmark::State& state, const PixelRequest& request, const Maker& make, bool compare) {
    PixelRequest small = request;
    small.width = 512;
    small.height = 128;
    const double error = compare ? worst_error(request, make(small)) : -1.0;
    const Rivals::Conversion convert = make(request);
    Frame from(request.from, request.width, request.height);
    Frame to(request.to, request.width, request.height);
    fill_with_blocks(from, request.fromColour, request.width, request.height);
    for (auto _ : state) {
        convert(from.Image(), to.Image());
        benchmark::ClobberMemory();
    }
    state.counters["fps"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["err"] = error;
}

const PixelKernels& chosen_kernels() {
    const char* name = std::getenv("PIXEL_KERNELS");
    const std::string wanted = name ? name : "";
    const PixelKernels* set = wanted == "plain"  ? &PlainPixelKernels()
                              : wanted == "sse"  ? Sse41PixelKernels()
                              : wanted == "avx2" ? Avx2PixelKernels()
                                                 : &BestPixelKernels();
    return set ? *set : BestPixelKernels();
}

Rivals::Conversion Ours(const PixelRequest& request) {
    const std::shared_ptr<PixelPlan> plan = PixelPlan::Make(request, chosen_kernels());
    return [plan](const PixelImage& from, const PixelImage& to) { plan->Convert(from, to); };
}

std::string text_of(unsigned int code) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>(code >> shift);
    return text;
}

/// Registers a pair with everybody who can convert it.
void add_pair(const PixelRequest& request, const std::string& suffix) {
    const std::string name = text_of(request.from) + ">" + text_of(request.to) + suffix + "/";
    const bool rgb = FindPixelFormat(request.from)->family == PixelFamily::Rgb ||
                     FindPixelFormat(request.to)->family == PixelFamily::Rgb;
    const struct {
        const char* name;
        Maker make;
        bool compare;
    } makers[] = {
        {"ours", Ours, true},
        {"libyuv", Rivals::Libyuv, true},
        {"sws", [](const PixelRequest& r) { return Swscale(r, Rivals::Telling::Untold); }, true},
        {"sws_told", [](const PixelRequest& r) { return Swscale(r, Rivals::Telling::Told); }, true},
        {"sws_accurate",
         [](const PixelRequest& r) { return Swscale(r, Rivals::Telling::ToldAndAccurate); }, true},
        {"zimg", Rivals::Zimg, !rgb},
        {"plain_loop", Rivals::PlainLoop, true},
    };
    for (const auto& maker : makers) {
        if (!maker.make(request)) continue;
        benchmark::RegisterBenchmark((name + maker.name).c_str(), [request,
                                                                   maker](benchmark::State& state) {
            run(state, request, maker.make, maker.compare);
        })->MinTime(0.1);
    }
}

/// The range that pictures have unless told otherwise.
PixelColour usual(const PixelFormat& format, PixelMatrix matrix) {
    return {matrix, format.family == PixelFamily::Rgb ? PixelRange::Full : PixelRange::Limited};
}

bool add_all() {
    int count = 0;
    const unsigned int* codes = AllPixelFormats(count);
    for (int i = 0; i < count; ++i) {
        for (int j = 0; j < count; ++j) {
            if (i == j) continue;
            const PixelFormat& from = *FindPixelFormat(codes[i]);
            const PixelFormat& to = *FindPixelFormat(codes[j]);
            PixelRequest request{codes[i], codes[j], kWidth, kHeight, {}, {}, {}};
            request.fromColour = usual(from, PixelMatrix::Bt709);
            request.toColour = usual(to, PixelMatrix::Bt709);
            add_pair(request, "");
            if ((from.family == PixelFamily::Rgb) == (to.family == PixelFamily::Rgb)) continue;
            request.fromColour.matrix = request.toColour.matrix = PixelMatrix::Bt601;
            add_pair(request, " 601");
        }
    }
    return true;
}

// What swscale cannot do with a pair shows as its error; it need not say so for each.
const bool gAdded = (Rivals::Silence(), add_all());

}  // namespace
