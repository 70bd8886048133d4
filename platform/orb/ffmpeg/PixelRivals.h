#pragma once

#include <functional>

#include "PixelPlan.h"

/// Other libraries' conversions behind one face, for the benchmark. An empty function: it has none.
namespace Quillon::Orb::Rivals {

/// Keeps libraries that write to the terminal from it.
void Silence();

using Conversion = std::function<void(const PixelImage& from, const PixelImage& to)>;

/// libyuv as it comes: the function that its names promise for the pair. Where it knows one matrix
/// only, that one, whatever was asked for.
Conversion Libyuv(const PixelRequest& request);

/// libswscale. Untold: sws_getContext with its default filter and nothing else. Told: matrix and
/// range are stated after the context stands, with the filter that stays right and is fastest.
enum class Telling { Untold, Told, ToldAndAccurate };
Conversion Swscale(const PixelRequest& request, Telling telling);

/// zimg, where it reads and writes the planes itself: packed formats are left to its caller. Red,
/// green and blue are timed as three planes, which it is spared to pick apart.
Conversion Zimg(const PixelRequest& request);

/// The loop that anybody writes first: 15-bit gains, chroma of the mean of 2 x 2, compiled for
/// AVX2. BGRA to I420, BT.709 limited alone.
Conversion PlainLoop(const PixelRequest& request);

}  // namespace Quillon::Orb::Rivals
