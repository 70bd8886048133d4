#include <cstring>

#include "PixelFixedPoint.h"
#include "PixelPlans.h"

namespace Quillon::Orb {

namespace {

/// Luma rows that a picture has for chroma row k of 4:2:0: two, or one at the end of odd heights.
int rows_of_pair(int k, int rows) {
    return 2 * k + 1 < rows ? 2 : 1;
}

/// 8-bit Y, U and V that only change places. Rows go straight from source to target where one of
/// the two sides is planar.
class YuvShufflePlan : public PixelPlan {
public:
    YuvShufflePlan(const PixelRequest& request, const PixelKernels& kernels)
        : PixelPlan(request, kernels),
          fSource(fFrom, fWidth, kernels),
          fSink(fTo, fWidth, kernels),
          fChromaWidth(fTo.ChromaWidth(fWidth)),
          fNeutral(1, fWidth / 2 + 1) {
        std::memset(fNeutral.Row<PixelByte>(0), 128, fWidth);
    }

private:
    void convert_view(const PixelView& from, const PixelView& to) override {
        fSource.Start(from);
        fSink.Start(to);
        if (!fTo.HasChroma()) {
            for (int y = 0; y < from.rows; ++y) copy_luma(y);
        } else if (!fTo.shiftY) {
            for (int y = 0; y < from.rows; ++y) convert_row(y);
        } else if (fSource.IsPacked()) {
            convert_packed_to_420(from, to);
        } else {
            for (int y = 0; y < from.rows; ++y) copy_luma(y);
            for (int k = 0; k < to.chromaRows; ++k) convert_chroma(k);
        }
    }

    void copy_luma(int y) {
        if (fSource.IsPacked()) {
            fKernels.unpackLuma[fFrom.swapped](fSource.View().Row(0, y), bytes(fSink.Luma(y)),
                                               fWidth);
        } else {
            std::memcpy(fSink.Luma(y), fSource.Luma(y), fWidth);
        }
    }

    /// A row of 4:2:2 out of anything.
    void convert_row(int y) {
        if (fSource.IsPacked() && fSink.IsPacked()) {
            const int pairs = (fWidth + 1) & ~1;
            fKernels.swapBytes(fSource.View().Row(0, y), fSink.View().Row(0, y), pairs);
            return;
        }
        if (fSource.IsPacked()) {
            fSource.Unpack(y, bytes(fSink.Luma(y)), bytes(fSink.U(y)), bytes(fSink.V(y)));
            return;
        }
        PixelByte* u = bytes(fSink.U(y));
        PixelByte* v = bytes(fSink.V(y));
        const PixelYuvSource::Chroma chroma = chroma_at(y, u, v);
        if (fSink.IsPacked()) {
            fSink.Pack(y, static_cast<const PixelByte*>(fSource.Luma(y)), bytes(chroma.u),
                       bytes(chroma.v));
            return;
        }
        copy_luma(y);
        if (chroma.u != u) std::memcpy(u, chroma.u, fChromaWidth);
        if (chroma.v != v) std::memcpy(v, chroma.v, fChromaWidth);
    }

    /// The chroma of a luma row: as it lies, or mixed into the rows given.
    PixelYuvSource::Chroma chroma_at(int y, PixelByte* u, PixelByte* v) {
        if (!fFrom.HasChroma()) return {fNeutral.Row<void>(0), fNeutral.Row<void>(0)};
        if (!fFrom.shiftY) return fSource.ChromaRow(y);
        const PixelView& view = fSource.View();
        const PixelTap tap = TapAtLumaRow(y, view.chromaRows, view.lines);
        if (tap.near == tap.far) return fSource.ChromaRow(tap.near);
        mix(tap, u, v);
        return {u, v};
    }

    void mix(const PixelTap& tap, PixelByte* u, PixelByte* v) {
        const PixelYuvSource::Chroma near = fSource.ChromaRow(tap.near);
        const PixelYuvSource::Chroma far = fSource.ChromaRow(tap.far);
        fKernels.mixBytes(tap.mix, bytes(near.u), bytes(far.u), u, fChromaWidth);
        fKernels.mixBytes(tap.mix, bytes(near.v), bytes(far.v), v, fChromaWidth);
    }

    void convert_packed_to_420(const PixelView& from, const PixelView& to) {
        for (int k = 0; k < to.chromaRows; ++k) {
            const PixelTap tap = TapAtChromaRow(k, from.rows, from.lines);
            const PixelByte* row0 = from.Row(0, tap.near);
            const PixelByte* row1 = from.Row(0, tap.far);
            PixelByte* y0 = to.Row(0, tap.near);
            PixelByte* y1 = to.Row(0, tap.far);
            if (fSink.IsSemiPlanar()) {
                fKernels.unpackToNv12[fFrom.swapped](tap.mix, row0, row1, y0, y1, to.Row(1, k),
                                                     fWidth);
            } else {
                fKernels.unpackTo420[fFrom.swapped](tap.mix, row0, row1, y0, y1, to.Row(1, k),
                                                    to.Row(2, k), fWidth);
            }
        }
        for (int y = 2 * to.chromaRows; y < from.rows; ++y) copy_luma(y);
    }

    /// A row of 4:2:0 out of planes, or neutral.
    void convert_chroma(int k) {
        PixelByte* u = bytes(fSink.U(k));
        PixelByte* v = bytes(fSink.V(k));
        if (!fFrom.HasChroma()) {
            std::memset(u, 128, fChromaWidth);
            std::memset(v, 128, fChromaWidth);
        } else if (!fFrom.shiftY) {
            mix(TapAtChromaRow(k, fSource.View().rows, fSource.View().lines), u, v);
        } else if (fSource.IsSemiPlanar()) {
            fSource.Split(k, u, v);
            return;
        } else {
            const PixelYuvSource::Chroma chroma = fSource.ChromaRow(k);
            fSink.Merge(k, bytes(chroma.u), bytes(chroma.v));
            return;
        }
        fSink.EndChroma(k);
    }

    static PixelByte* bytes(void* row) { return static_cast<PixelByte*>(row); }
    static const PixelByte* bytes(const void* row) { return static_cast<const PixelByte*>(row); }

    PixelYuvSource fSource;
    PixelYuvSink fSink;
    const int fChromaWidth;
    PixelScratch fNeutral;
};

/// Y, U and V of one meaning or depth to another, over wide words where anything is interpolated.
class YuvToYuvPlan : public PixelPlan {
public:
    YuvToYuvPlan(const PixelRequest& request, const PixelKernels& kernels)
        : PixelPlan(request, kernels),
          fSource(fFrom, fWidth, kernels),
          fSink(fTo, fWidth, kernels),
          fHasMatrix(fFrom.HasChroma() && request.fromColour.matrix != request.toColour.matrix),
          fFromDepth(DepthIndex(fFrom)),
          fToDepth(DepthIndex(fTo)),
          fWide(kWideRows, fWidth),
          fNeutral(1, fWidth) {
        ColourTransform transform =
            YuvToYuvTransform(request.fromColour, fFrom.bits, request.toColour, fTo.bits);
        fLuma = MakeMap(transform, 0, fTo.bits);
        fChroma = MakeMap(transform, 1, fTo.bits);
        fLumaMatrix = MakeLumaMatrix(transform, fTo.bits);
        fChromaMatrix = MakeChromaMatrix(transform, fTo.bits);
        for (int x = 0; x < fWidth; ++x) fNeutral.Row<PixelWord>(0)[x] = 128 << 7;
    }

private:
    enum WideRow { kLuma, kU, kV, kFullU, kFullV, kWideRows };

    void convert_view(const PixelView& from, const PixelView& to) override {
        fSource.Start(from);
        fSink.Start(to);
        if (fTo.shiftY) {
            for (int k = 0; k < to.chromaRows; ++k) {
                for (int i = 0; i < rows_of_pair(k, from.rows); ++i) convert_luma(2 * k + i);
                convert_chroma(k);
            }
            for (int y = 2 * to.chromaRows; y < from.rows; ++y) convert_luma(y);
            return;
        }
        for (int y = 0; y < from.rows; ++y) {
            convert_luma(y);
            if (fTo.HasChroma()) convert_chroma(y);
            fSink.EndLuma(y);
        }
    }

    void convert_luma(int y) {
        if (!fHasMatrix) {
            fKernels.map[fFromDepth][fToDepth](fLuma, fSource.Luma(y), fSink.Luma(y), fWidth);
            return;
        }
        PixelWord* luma = fWide.Row<PixelWord>(kLuma);
        const void* row = fSource.Luma(y);
        fKernels.mixToWide[fFromDepth](kNoMix, row, row, luma, fWidth);
        const PixelTap tap = source_tap(y);
        const bool isHalf = fFrom.shiftX;
        PixelWord* u = fWide.Row<PixelWord>(isHalf ? kU : kFullU);
        PixelWord* v = fWide.Row<PixelWord>(isHalf ? kV : kFullV);
        WidenChroma(fKernels, fFromDepth, fSource, tap, u, v, fFrom.ChromaWidth(fWidth));
        if (isHalf) {
            fKernels.doubleWide(u, fWide.Row<PixelWord>(kFullU), fWidth);
            fKernels.doubleWide(v, fWide.Row<PixelWord>(kFullV), fWidth);
        }
        fKernels.lumaMatrix[fToDepth](fLumaMatrix, luma, fWide.Row<PixelWord>(kFullU),
                                      fWide.Row<PixelWord>(kFullV), fSink.Luma(y), fWidth);
    }

    /// The chroma of the source at luma row y.
    PixelTap source_tap(int y) const {
        const PixelView& view = fSource.View();
        if (!fFrom.shiftY) return {y, y, kNoMix};
        return TapAtLumaRow(y, view.chromaRows, view.lines);
    }

    /// The chroma of the source at chroma row `row` of the target.
    PixelTap target_tap(int row) const {
        if (fFrom.shiftY == fTo.shiftY) return {row, row, kNoMix};
        const PixelView& view = fSource.View();
        return fTo.shiftY ? TapAtChromaRow(row, view.rows, view.lines) : source_tap(row);
    }

    void convert_chroma(int row) {
        const int n = fTo.ChromaWidth(fWidth);
        if (!fFrom.HasChroma()) {
            fKernels.narrow[fToDepth](fChroma, fNeutral.Row<PixelWord>(0), fSink.U(row), n);
            fKernels.narrow[fToDepth](fChroma, fNeutral.Row<PixelWord>(0), fSink.V(row), n);
            fSink.EndChroma(row);
            return;
        }
        const PixelTap tap = target_tap(row);
        if (!fHasMatrix && tap.near == tap.far && fFrom.shiftX == fTo.shiftX) {
            const PixelYuvSource::Chroma chroma = fSource.ChromaRow(tap.near);
            fKernels.map[fFromDepth][fToDepth](fChroma, chroma.u, fSink.U(row), n);
            fKernels.map[fFromDepth][fToDepth](fChroma, chroma.v, fSink.V(row), n);
        } else {
            convert_wide_chroma(row, tap, n);
        }
        fSink.EndChroma(row);
    }

    void convert_wide_chroma(int row, const PixelTap& tap, int n) {
        PixelWord* u = fWide.Row<PixelWord>(fTo.shiftX ? kU : kFullU);
        PixelWord* v = fWide.Row<PixelWord>(fTo.shiftX ? kV : kFullV);
        if (fFrom.shiftX == fTo.shiftX) {
            WidenChroma(fKernels, fFromDepth, fSource, tap, u, v, n);
        } else {
            PixelWord* otherU = fWide.Row<PixelWord>(fTo.shiftX ? kFullU : kU);
            PixelWord* otherV = fWide.Row<PixelWord>(fTo.shiftX ? kFullV : kV);
            WidenChroma(fKernels, fFromDepth, fSource, tap, otherU, otherV,
                        fFrom.ChromaWidth(fWidth));
            const auto resample = fTo.shiftX ? fKernels.halveWide : fKernels.doubleWide;
            resample(otherU, u, fWidth);
            resample(otherV, v, fWidth);
        }
        if (fHasMatrix) {
            fKernels.chromaMatrix[fToDepth](fChromaMatrix, u, v, fSink.U(row), fSink.V(row), n);
            return;
        }
        fKernels.narrow[fToDepth](fChroma, u, fSink.U(row), n);
        fKernels.narrow[fToDepth](fChroma, v, fSink.V(row), n);
    }

    PixelYuvSource fSource;
    PixelYuvSink fSink;
    const bool fHasMatrix;
    const int fFromDepth;
    const int fToDepth;
    PixelMap fLuma{};
    PixelMap fChroma{};
    PixelLumaMatrix fLumaMatrix{};
    PixelChromaMatrix fChromaMatrix{};
    PixelScratch fWide;
    PixelScratch fNeutral;
};

}  // namespace

void WidenChroma(const PixelKernels& kernels, int depth, PixelYuvSource& source,
                 const PixelTap& tap, PixelWord* u, PixelWord* v, int n) {
    const PixelYuvSource::Chroma near = source.ChromaRow(tap.near);
    const PixelYuvSource::Chroma far = source.ChromaRow(tap.far);
    kernels.mixToWide[depth](tap.mix, near.u, far.u, u, n);
    kernels.mixToWide[depth](tap.mix, near.v, far.v, v, n);
    u[n] = u[n - 1];
    v[n] = v[n - 1];
}

std::unique_ptr<PixelPlan> MakeYuvShufflePlan(const PixelRequest& request,
                                              const PixelKernels& kernels) {
    return std::make_unique<YuvShufflePlan>(request, kernels);
}

std::unique_ptr<PixelPlan> MakeYuvToYuvPlan(const PixelRequest& request,
                                            const PixelKernels& kernels) {
    return std::make_unique<YuvToYuvPlan>(request, kernels);
}

}  // namespace Quillon::Orb
