#pragma once

#include "PixelColour.h"
#include "PixelKernels.h"

namespace Quillon::Orb {

// The kernels' numbers for a transform. What does not change (grey, black, white) is held exactly:
// the constant terms are worked out from the rounded gains, and the gains of a row sum up right.

PixelMap MakeMap(const ColourTransform& transform, int row, int toBits);
PixelLumaMatrix MakeLumaMatrix(const ColourTransform& yuvToYuv, int toBits);
PixelChromaMatrix MakeChromaMatrix(const ColourTransform& yuvToYuv, int toBits);
PixelToRgb MakeToRgb(const ColourTransform& yuvToRgb);
PixelFromRgb MakeFromRgb(const ColourTransform& rgbToYuv, int toBits);

}  // namespace Quillon::Orb
