#pragma once

#include "PixelPlan.h"

namespace Quillon::Orb {

// The kinds of plan that PixelPlan::Make chooses from; the request fits the kind.

std::unique_ptr<PixelPlan> MakeRgbToRgbPlan(const PixelRequest& request,
                                            const PixelKernels& kernels);
std::unique_ptr<PixelPlan> MakeRgbToYuvPlan(const PixelRequest& request,
                                            const PixelKernels& kernels);
std::unique_ptr<PixelPlan> MakeYuvToRgbPlan(const PixelRequest& request,
                                            const PixelKernels& kernels);
/// Y, U and V that mean the same on both sides at the same depth: only their order, shape and
/// subsampling differ.
std::unique_ptr<PixelPlan> MakeYuvShufflePlan(const PixelRequest& request,
                                              const PixelKernels& kernels);
std::unique_ptr<PixelPlan> MakeYuvToYuvPlan(const PixelRequest& request,
                                            const PixelKernels& kernels);

/// Puts the chroma that stands at some row into wide words: mixes two rows and pads the end.
/// `depth` is the index of the source's depth in the kernels' tables.
void WidenChroma(const PixelKernels& kernels, int depth, PixelYuvSource& source,
                 const PixelTap& tap, PixelWord* u, PixelWord* v, int n);

inline constexpr PixelMix kNoMix = {8, 0};

/// The index of a depth in the kernels' tables.
inline int DepthIndex(const PixelFormat& format) {
    return format.bits == 10 ? 1 : 0;
}

}  // namespace Quillon::Orb
