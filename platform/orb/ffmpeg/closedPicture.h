#pragma once

#include "orb/CPixelBufferDataReference.h"
#include "orb/CVideoSample.h"

// For tests of what is said where somebody else's failure says nothing.
namespace Quillon::Orb {

/// Pixels of an add-on that nobody can reach, and that do not say why.
class ClosedPixels : public CPixelBufferDataReference {
public:
    using CPixelBufferDataReference::CPixelBufferDataReference;
    Result Lock(int) override { return ResultError(nullptr); }
};

inline RObject<CVideoSample> closed_picture(int width, int height) {
    const RObject<CByteArray> bytes(new CByteArray(2 * width * height, 1));
    const RObject<ClosedPixels> pixels(new ClosedPixels(bytes.Get(), width, height, 2 * width));
    RObject<CVideoSample> sample(new CVideoSample(0, 0, 0));
    sample->SetDataReference(pixels.Get());
    return sample;
}

}  // namespace Quillon::Orb
