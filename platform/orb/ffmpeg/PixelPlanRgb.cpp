#include <cstring>

#include "PixelFixedPoint.h"
#include "PixelPlans.h"

namespace Quillon::Orb {

namespace {

/// Between sizes and ranges of red, green and blue. Goes over BGRA, in place where a side is BGRA.
class RgbToRgbPlan : public PixelPlan {
public:
    RgbToRgbPlan(const PixelRequest& request, const PixelKernels& kernels)
        : PixelPlan(request, kernels),
          fSource(fFrom, fWidth, kernels),
          fSink(fTo, fWidth, kernels),
          fIsMapped(request.fromColour.range != request.toColour.range),
          fMapped(fIsMapped ? 1 : 0, 2 * fWidth) {
        if (!fIsMapped) return;
        const PixelScale from = LumaScale(request.fromColour.range, 8);
        const PixelScale to = LumaScale(request.toColour.range, 8);
        ColourTransform transform{};
        transform.gain[0][0] = to.span / from.span;
        transform.from[0] = from.offset;
        transform.to[0] = to.offset;
        fMap = MakeMap(transform, 0, 8);
    }

private:
    void convert_view(const PixelView& from, const PixelView& to) override {
        fSource.Start(from);
        fSink.Start(to);
        for (int y = 0; y < from.rows; ++y) convert_row(y);
    }

    void convert_row(int y) {
        if (!fIsMapped && fSink.IsBgra()) {
            fSource.Unpack(y, fSink.Bgra(y));
            return;
        }
        const PixelByte* bgra = fSource.Bgra(y, 0);
        if (fIsMapped) {
            PixelByte* mapped = fSink.IsBgra() ? fSink.Bgra(y) : fMapped.Row<PixelByte>(0);
            fKernels.mapBgra(fMap, bgra, mapped, fWidth);
            bgra = mapped;
        }
        if (!fSink.IsBgra()) fSink.Pack(y, bgra);
    }

    PixelRgbSource fSource;
    PixelRgbSink fSink;
    const bool fIsMapped;
    PixelMap fMap{};
    PixelScratch fMapped;
};

/// Red, green and blue to Y, U and V, or to grey.
class RgbToYuvPlan : public PixelPlan {
public:
    RgbToYuvPlan(const PixelRequest& request, const PixelKernels& kernels)
        : PixelPlan(request, kernels),
          fSource(fFrom, fWidth, kernels),
          fSink(fTo, fWidth, kernels),
          fYuv(MakeFromRgb(RgbToYuvTransform(request.fromColour.range, request.toColour, fTo.bits),
                           fTo.bits)) {}

private:
    void convert_view(const PixelView& from, const PixelView& to) override {
        fSource.Start(from);
        fSink.Start(to);
        if (fTo.shiftY) {
            for (int k = 0; k < to.chromaRows; ++k) convert_pair(k, from, to);
            // A bottom field may have one luma row more than its chroma rows stand for.
            for (int y = 2 * to.chromaRows; y < from.rows; ++y) convert_luma(y);
        } else {
            for (int y = 0; y < from.rows; ++y) convert_row(y);
        }
    }

    void convert_pair(int k, const PixelView& from, const PixelView& to) {
        const PixelTap tap = TapAtChromaRow(k, from.rows, from.lines);
        const PixelByte* row0 = fSource.Bgra(tap.near, 0);
        const PixelByte* row1 = tap.near == tap.far ? row0 : fSource.Bgra(tap.far, 1);
        PixelByte* y0 = to.Row(0, tap.near);
        PixelByte* y1 = to.Row(0, tap.far);
        if (fSink.IsSemiPlanar()) {
            fKernels.bgraToNv12(fYuv, tap.mix, row0, row1, y0, y1, to.Row(1, k), fWidth);
        } else {
            fKernels.bgraTo420(fYuv, tap.mix, row0, row1, y0, y1, to.Row(1, k), to.Row(2, k),
                               fWidth);
        }
    }

    void convert_row(int y) {
        if (!fTo.HasChroma()) {
            convert_luma(y);
        } else if (fTo.shiftX) {
            fKernels.bgraTo422[DepthIndex(fTo)](fYuv, fSource.Bgra(y, 0), fSink.Luma(y), fSink.U(y),
                                                fSink.V(y), fWidth);
        } else {
            fKernels.bgraTo444(fYuv, fSource.Bgra(y, 0), static_cast<PixelWord*>(fSink.Luma(y)),
                               static_cast<PixelWord*>(fSink.U(y)),
                               static_cast<PixelWord*>(fSink.V(y)), fWidth);
        }
        fSink.EndLuma(y);
    }

    void convert_luma(int y) {
        fKernels.bgraToLuma(fYuv, fSource.Bgra(y, 0), static_cast<PixelByte*>(fSink.Luma(y)),
                            fWidth);
    }

    PixelRgbSource fSource;
    PixelYuvSink fSink;
    const PixelFromRgb fYuv;
};

/// Y, U and V, or grey, to red, green and blue.
class YuvToRgbPlan : public PixelPlan {
public:
    YuvToRgbPlan(const PixelRequest& request, const PixelKernels& kernels)
        : PixelPlan(request, kernels),
          fSource(fFrom, fWidth, kernels),
          fSink(fTo, fWidth, kernels),
          fRgb(
              MakeToRgb(YuvToRgbTransform(request.fromColour, fFrom.bits, request.toColour.range))),
          fIsRv16(fTo.code == 'RV16' && fFrom.shiftX),
          fWide(2, fWidth),
          fGrey(1, fWidth) {
        const ColourTransform luma =
            YuvToYuvTransform({request.fromColour.matrix, request.fromColour.range}, fFrom.bits,
                              {request.fromColour.matrix, request.toColour.range}, 8);
        fGreyMap = MakeMap(luma, 0, 8);
    }

private:
    void convert_view(const PixelView& from, const PixelView& to) override {
        fSource.Start(from);
        fSink.Start(to);
        fTarget = to;
        for (int y = 0; y < from.rows; ++y) {
            if (fFrom.HasChroma()) {
                convert_row(y, from);
            } else {
                convert_grey(y);
            }
        }
    }

    void convert_row(int y, const PixelView& from) {
        PixelWord* u = fWide.Row<PixelWord>(0);
        PixelWord* v = fWide.Row<PixelWord>(1);
        const PixelTap tap =
            fFrom.shiftY ? TapAtLumaRow(y, from.chromaRows, from.lines) : PixelTap{y, y, kNoMix};
        const int depth = DepthIndex(fFrom);
        const void* luma = fSource.Luma(y);
        WidenChroma(fKernels, depth, fSource, tap, u, v, fFrom.ChromaWidth(fWidth));
        if (fIsRv16) {
            fKernels.toRv16Half[depth](fRgb, luma, u, v, fTarget.Row(0, y), fWidth);
            return;
        }
        if (fFrom.shiftX) {
            fKernels.toBgraHalf[depth](fRgb, luma, u, v, fSink.Bgra(y), fWidth);
        } else {
            fKernels.toBgraFull(fRgb, static_cast<const PixelWord*>(luma), u, v, fSink.Bgra(y),
                                fWidth);
        }
        fSink.EndRow(y);
    }

    void convert_grey(int y) {
        const PixelByte* grey = static_cast<const PixelByte*>(fSource.Luma(y));
        if (fRequest.fromColour.range != fRequest.toColour.range) {
            fKernels.map[0][0](fGreyMap, grey, fGrey.Row<void>(0), fWidth);
            grey = fGrey.Row<PixelByte>(0);
        }
        fKernels.greyToBgra(grey, fSink.Bgra(y), fWidth);
        fSink.EndRow(y);
    }

    PixelYuvSource fSource;
    PixelRgbSink fSink;
    PixelView fTarget;
    const PixelToRgb fRgb;
    const bool fIsRv16;  ///< and chroma of halved width: there is a way that leaves BGRA out
    PixelMap fGreyMap{};
    PixelScratch fWide;
    PixelScratch fGrey;
};

}  // namespace

std::unique_ptr<PixelPlan> MakeRgbToRgbPlan(const PixelRequest& request,
                                            const PixelKernels& kernels) {
    return std::make_unique<RgbToRgbPlan>(request, kernels);
}

std::unique_ptr<PixelPlan> MakeRgbToYuvPlan(const PixelRequest& request,
                                            const PixelKernels& kernels) {
    return std::make_unique<RgbToYuvPlan>(request, kernels);
}

std::unique_ptr<PixelPlan> MakeYuvToRgbPlan(const PixelRequest& request,
                                            const PixelKernels& kernels) {
    return std::make_unique<YuvToRgbPlan>(request, kernels);
}

}  // namespace Quillon::Orb
