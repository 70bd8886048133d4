#pragma once

#include <memory>

#include "PixelColour.h"
#include "PixelRows.h"

namespace Quillon::Orb {

/// How the lines of the picture were taken. A single field is converted by itself, with chroma
/// where that field has it; an interlaced frame as its two fields.
enum class PixelScan { Progressive, Interlaced, TopField, BottomField };

/// One conversion: everything is stated, nothing is guessed here.
struct PixelRequest {
    unsigned int from = 0;
    unsigned int to = 0;
    int width = 0;
    int height = 0;
    PixelColour fromColour;
    PixelColour toColour;
    PixelScan scan = PixelScan::Progressive;
};

/// A conversion between two raw formats, chosen once and then run for each frame.
///
/// Every pair of formats, both matrices and both ranges on both sides. A result is at most one code
/// off what double precision gives; what has no code is clamped. Chroma stands on the even columns
/// (as H.264, MPEG-2 and ProRes have it unless told otherwise) and, in 4:2:0, between lines as
/// PixelLines says. Taking chroma down averages with 1-2-1 across and, for frames, evenly down;
/// taking it up interpolates linearly. Alpha is kept between 'BGRA' and 'BGRA', else 255.
///
/// Make allocates all that is needed; Convert allocates nothing. One thread at a time uses a plan.
class PixelPlan {
public:
    /// Null when a format is not raw or the size is not positive.
    static std::unique_ptr<PixelPlan> Make(const PixelRequest& request,
                                           const PixelKernels& kernels = BestPixelKernels());

    virtual ~PixelPlan() = default;
    PixelPlan(const PixelPlan&) = delete;
    PixelPlan& operator=(const PixelPlan&) = delete;

    /// The images must be as large as the request says and must not overlap.
    void Convert(const PixelImage& from, const PixelImage& to);

protected:
    PixelPlan(const PixelRequest& request, const PixelKernels& kernels);

    const PixelRequest fRequest;
    const PixelFormat& fFrom;
    const PixelFormat& fTo;
    const PixelKernels& fKernels;
    const int fWidth;

private:
    virtual void convert_view(const PixelView& from, const PixelView& to) = 0;
    void convert_field(const PixelImage& from, const PixelImage& to, int parity);
    bool is_by_field() const;
    bool mixes_lines() const;
};

/// Copies the bytes of one picture into another of the same format.
void CopyPixels(const PixelFormat& format, int width, int height, const PixelImage& from,
                const PixelImage& to);

}  // namespace Quillon::Orb
