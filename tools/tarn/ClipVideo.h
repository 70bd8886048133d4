#pragma once

#include <memory>
#include <string>
#include <vector>

#include "orb/CPixelDataReference.h"
#include "orb/RObject.h"
#include "tarn/foundation/tnMediaRecord.h"

#include "parseRate.h"

/// One decoded picture of a clip.
struct ClipFrame {
    Quillon::Orb::RObject<Quillon::Orb::CPixelDataReference> pixels;
    long long time = 0;      ///< ticks of the clip's timescale; the clip's first picture is at 0
    long long duration = 0;  ///< ticks, the clip's own idea of it
};

/// The pictures of any clip that FFmpeg reads, as raw frames of one size and one raster type.
///
/// One thread at a time. Pictures whose planes already lie as the library lays them out are handed
/// on where they are; the others are copied or converted once.
class ClipVideo {
public:
    /// Opens the best picture track; null with one line in `error` when there is none to be had.
    /// `width` and `height` scale the pictures, which are shown in the shape that they had; 0 keeps
    /// the clip's own. `raster` '2vuy' converts them to that type; 0 takes the one that is nearest
    /// to the clip's. The first picture is decoded already; a clip without one opens all the same.
    static std::unique_ptr<ClipVideo> Open(const std::string& path, int width, int height,
                                           std::string& error, int raster = 0);
    virtual ~ClipVideo() = default;

    /// Type, size, raster type, colour, field order, pixel aspect, timescale, frame duration and
    /// rate.
    virtual const tnMediaRecord& Format() const = 0;
    /// The rate that the clip tells. Timescale and frame duration are only as near to it as the
    /// clip's ticks allow: of 30 pictures a second 33 milliseconds each.
    virtual Rate FrameRate() const;
    /// Where the first picture stands on the clip's own time line, in seconds. Valid after one
    /// Next.
    virtual double StartSeconds() const = 0;
    /// The clip's length in seconds as its header tells it; 0 when it does not.
    virtual double HeaderSeconds() const = 0;
    /// Decodes one picture; false at the end. Damaged pictures come as the decoder repaired them,
    /// and each is later than the one before it: what steps back follows where that one ends.
    virtual bool Next(ClipFrame& frame) = 0;
    /// After the end: what is wrong with it, as "ends at 1.0 of 8.0 seconds"; empty when nothing
    /// is.
    virtual std::string Problem() const { return {}; }
    /// After the end: whether there may be more, which was not waited for, since the program was
    /// asked to stop.
    virtual bool GaveUp() const { return false; }
    /// From the start: what will look other than in the clip, and what to do; a line each.
    virtual std::vector<std::string> Cautions() const { return {}; }
};
