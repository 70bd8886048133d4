#include "PixelPlan.h"

#include <cstring>

#include "PixelPlans.h"

namespace Quillon::Orb {

namespace {

void copy_plane(const PixelImage& from, const PixelImage& to, int plane, int bytes, int rows) {
    const PixelByte* source = from.planes[plane];
    PixelByte* target = to.planes[plane];
    if (from.strides[plane] == bytes && to.strides[plane] == bytes) {
        std::memcpy(target, source, static_cast<std::size_t>(bytes) * rows);
        return;
    }
    for (int y = 0; y < rows; ++y) {
        std::memcpy(target, source, bytes);
        source += from.strides[plane];
        target += to.strides[plane];
    }
}

class CopyPlan : public PixelPlan {
public:
    CopyPlan(const PixelRequest& request, const PixelKernels& kernels)
        : PixelPlan(request, kernels) {}

private:
    void convert_view(const PixelView& from, const PixelView& to) override {
        CopyPixels(fFrom, fWidth, from.rows, from.image, to.image);
    }
};

bool mean_the_same(const PixelFormat& from, const PixelRequest& request) {
    if (request.fromColour.range != request.toColour.range) return false;
    if (!from.HasChroma()) return true;  // grey is grey in every matrix
    return request.fromColour.matrix == request.toColour.matrix;
}

/// The same lines and columns of chroma in the same kind of planes.
bool differ_in_order_only(const PixelFormat& from, const PixelFormat& to) {
    return from.shape == PixelShape::Planar && to.shape == PixelShape::Planar &&
           from.family == to.family && from.bits == to.bits && from.shiftX == to.shiftX &&
           from.shiftY == to.shiftY;
}

/// The lines of one field as a picture of its own.
PixelView field_of(const PixelImage& image, int rows, int chromaRows, int parity) {
    PixelView view;
    view.lines = parity ? PixelLines::BottomField : PixelLines::TopField;
    view.rows = (rows + 1 - parity) / 2;
    view.chromaRows = (chromaRows + 1 - parity) / 2;
    for (int plane = 0; plane < 3; ++plane) {
        if (!image.planes[plane]) continue;
        view.image.planes[plane] =
            image.planes[plane] + static_cast<std::ptrdiff_t>(image.strides[plane]) * parity;
        view.image.strides[plane] = 2 * image.strides[plane];
    }
    return view;
}

PixelLines lines_of(PixelScan scan) {
    if (scan == PixelScan::TopField) return PixelLines::TopField;
    if (scan == PixelScan::BottomField) return PixelLines::BottomField;
    return PixelLines::Frame;
}

}  // namespace

std::unique_ptr<PixelPlan> PixelPlan::Make(const PixelRequest& request,
                                           const PixelKernels& kernels) {
    const PixelFormat* from = FindPixelFormat(request.from);
    const PixelFormat* to = FindPixelFormat(request.to);
    if (!from || !to || request.width < 1 || request.height < 1) return nullptr;

    const bool same = mean_the_same(*from, request);
    const bool fromRgb = from->family == PixelFamily::Rgb;
    const bool toRgb = to->family == PixelFamily::Rgb;
    if (same && (from == to || differ_in_order_only(*from, *to))) {
        return std::make_unique<CopyPlan>(request, kernels);
    }
    if (fromRgb && toRgb) return MakeRgbToRgbPlan(request, kernels);
    if (fromRgb) return MakeRgbToYuvPlan(request, kernels);
    if (toRgb) return MakeYuvToRgbPlan(request, kernels);
    if (same && from->bits == 8 && to->bits == 8) return MakeYuvShufflePlan(request, kernels);
    return MakeYuvToYuvPlan(request, kernels);
}

PixelPlan::PixelPlan(const PixelRequest& request, const PixelKernels& kernels)
    : fRequest(request),
      fFrom(*FindPixelFormat(request.from)),
      fTo(*FindPixelFormat(request.to)),
      fKernels(kernels),
      fWidth(request.width) {}

void PixelPlan::Convert(const PixelImage& from, const PixelImage& to) {
    if (is_by_field()) {
        convert_field(from, to, 0);
        convert_field(from, to, 1);
        return;
    }
    const int rows = fRequest.height;
    const PixelLines lines = lines_of(fRequest.scan);
    convert_view({from, rows, fFrom.ChromaHeight(rows), lines},
                 {to, rows, fTo.ChromaHeight(rows), lines});
}

void PixelPlan::convert_field(const PixelImage& from, const PixelImage& to, int parity) {
    const int rows = fRequest.height;
    convert_view(field_of(from, rows, fFrom.ChromaHeight(rows), parity),
                 field_of(to, rows, fTo.ChromaHeight(rows), parity));
}

// The smallest frame whose two fields both have a chroma line is three lines high; below that there
// is nothing to keep apart.
bool PixelPlan::is_by_field() const {
    return fRequest.scan == PixelScan::Interlaced && fRequest.height > 2 && mixes_lines();
}

// Chroma lines are mixed where their number changes, and where luma needs chroma at its own lines.
bool PixelPlan::mixes_lines() const {
    if (fFrom.shiftY != fTo.shiftY) return true;
    return fFrom.shiftY && fRequest.fromColour.matrix != fRequest.toColour.matrix;
}

void CopyPixels(const PixelFormat& format, int width, int height, const PixelImage& from,
                const PixelImage& to) {
    copy_plane(from, to, 0, format.RowBytes(width), height);
    if (!format.HasChroma() || format.shape == PixelShape::Packed) return;
    const int rows = format.ChromaHeight(height);
    const int bytes = format.ChromaWidth(width) * format.bytesPerUnit;
    if (format.shape == PixelShape::SemiPlanar) {
        copy_plane(from, to, 1, 2 * bytes, rows);
        return;
    }
    copy_plane(from, to, 1, bytes, rows);
    copy_plane(from, to, 2, bytes, rows);
}

}  // namespace Quillon::Orb
