#pragma once

namespace Quillon::Orb {

enum class PixelMatrix { Bt601, Bt709 };
enum class PixelRange { Limited, Full };

/// What the numbers of a picture mean.
///
/// Limited: Y, R, G and B run from 16 to 235, U and V from 16 to 240 (times four for 10 bits).
/// Full: everything runs from 0 to the largest code, U and V around half of it plus a half.
struct PixelColour {
    PixelMatrix matrix = PixelMatrix::Bt709;
    PixelRange range = PixelRange::Limited;

    bool operator==(const PixelColour&) const = default;
};

/// How a component of a picture lies between its codes: code = offset + span * value, with value
/// from 0 to 1 for Y, R, G, B and from -0.5 to 0.5 for U and V.
struct PixelScale {
    double offset;
    double span;
};
PixelScale LumaScale(PixelRange range, int bits);
PixelScale ChromaScale(PixelRange range, int bits);

/// The weights of red and blue in luma; green has the rest.
struct PixelWeights {
    double red;
    double blue;
};
PixelWeights WeightsOf(PixelMatrix matrix);

/// to' - to = gain * (from' - from), for all three components of a picture at once; `from` and `to`
/// are the codes of black or of no colour. Codes of 10 bits count as quarters here, so that a
/// limited code is the same number at both depths. Red, green and blue stand as blue, green, red.
struct ColourTransform {
    double gain[3][3];
    double from[3];
    double to[3];
};
ColourTransform RgbToYuvTransform(PixelRange rgb, PixelColour yuv, int yuvBits);
ColourTransform YuvToRgbTransform(PixelColour yuv, int yuvBits, PixelRange rgb);
ColourTransform YuvToYuvTransform(PixelColour from, int fromBits, PixelColour to, int toBits);

}  // namespace Quillon::Orb
