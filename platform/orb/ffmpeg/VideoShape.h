#pragma once

#include "orb/CVideoProperties.h"
#include "orb/ColorSpace.h"
#include "orb/Rational.h"
#include "orb/Result.h"

namespace Quillon::Orb {

/// The most columns or rows of a picture. H.264 and JPEG could say more; no source is larger.
constexpr int kLargestSide = 16384;

/// What an encoder needs to know of the pictures that it will get, checked and made plain.
struct VideoShape {
    unsigned int format = 0;  ///< raw format in which the samples come
    int width = 0;
    int height = 0;
    Rational<int> frameRate{30, 1};   ///< nominal; always above 0
    Rational<int> pixelAspect{1, 1};  ///< reduced; always above 0
    int fieldOrder = CVideoProperties::kProgressive;
    ColorSpace colour;
    bool fullRange = false;

    bool IsInterlaced() const { return fieldOrder != CVideoProperties::kProgressive; }
    bool IsTopFieldFirst() const { return fieldOrder == CVideoProperties::kTopFieldFirst; }
};

/// Reads the shape out of a compressor's input properties.
///
/// `formats` (of which there are `count`) is what the compressor takes. Properties that name
/// another one are no mistake: whoever finds no format in common puts a converter in front that
/// gives the first of the list, and still describes its source here. The samples then come in that
/// first one.
///
/// ResultInvalidArgument for null properties or a size that no picture of this library has.
Result ReadVideoShape(const CVideoProperties* input, const unsigned int* formats, int count,
                      VideoShape& shape);

/// The frame rate that properties mean: the time scale over the frame duration, else what was set
/// as the rate, else 30. What lies within 0.01 % of a rate of television or film becomes that one,
/// since time scales of clocks cannot hold 30000/1001 exactly.
Rational<int> NominalFrameRate(const CVideoProperties& properties);

}  // namespace Quillon::Orb
