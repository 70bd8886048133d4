#pragma once

#include "orb/BlockPool.h"
#include "orb/CPixelDataReference.h"
#include "orb/CVideoSample.h"
#include "orb/RObject.h"
#include "orb/Result.h"
#include "orb/VideoFormat.h"

#include "PixelFormat.h"

namespace Quillon::Orb {

/// The pixels of a sample, locked for reading for as long as this object lives, as planes that an
/// encoder can read in place. Keeps its reference to the pixels, so that an encoder that holds
/// pictures back may take the object along. Moves, does not copy.
class RawPicture {
public:
    RawPicture() = default;
    RawPicture(RawPicture&& other) noexcept;
    RawPicture& operator=(RawPicture&& other) noexcept;
    ~RawPicture();

    /// Locks the sample's pixels, which lie in the raw format `format`.
    ///
    /// Blocks that lack a last chroma row or column are completed in a copy, with their neighbours
    /// repeated; everything else stays where it is. ResultInvalidArgument for a sample without
    /// pixels, of another size, or with too few bytes; ResultOutOfMemory.
    Result Lock(const CVideoSample& sample, unsigned int format, int width, int height);

    /// Y, U, V; the one packed plane; or Y and the UV plane.
    const PixelImage& GetImage() const noexcept { return fImage; }

private:
    void unlock() noexcept;
    Result lay_out(unsigned int format, int width, int height);

    RObject<CPixelDataReference> fPixels;
    Block fCompleted;
    PixelImage fImage;
};

/// Copies a plane whose samples take `unit` bytes and repeats its last column and row where the
/// copy is larger. A plane without any sample becomes grey: it is chroma.
void CompletePlane(const unsigned char* from, const PixelLayout::Plane& has, unsigned char* to,
                   const PixelLayout::Plane& wants, int unit);

}  // namespace Quillon::Orb
