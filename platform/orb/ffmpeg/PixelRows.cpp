#include "PixelRows.h"

#include <algorithm>

namespace Quillon::Orb {

namespace {

constexpr int kAlignment = 64;

// Rows that are all a multiple of a page apart would fall on the same cache lines.
constexpr int kStagger = 64;

int whole_lines(int bytes) {
    return (bytes + kAlignment - 1) & -kAlignment;
}

void (*unpack_of(const PixelFormat& format, const PixelKernels& kernels))(const PixelByte*,
                                                                          PixelByte*, int) {
    switch (format.code) {
        case 'RV24':
            return kernels.rv24ToBgra;
        case 'RV16':
            return kernels.rv16ToBgra;
        case 'RGB2':
            return kernels.rgb2ToBgra;
        default:
            return nullptr;
    }
}

void (*pack_of(const PixelFormat& format, const PixelKernels& kernels))(const PixelByte*,
                                                                        PixelByte*, int) {
    switch (format.code) {
        case 'RV24':
            return kernels.bgraToRv24;
        case 'RV16':
            return kernels.bgraToRv16;
        case 'RGB2':
            return kernels.bgraToRgb2;
        default:
            return nullptr;
    }
}

}  // namespace

// In eighths of the distance between two chroma lines. A frame's luma lines lie a quarter above and
// below their chroma line; in the top field an eighth above and three eighths below; in the bottom
// field the other way round.
PixelTap TapAtLumaRow(int y, int chromaRows, PixelLines lines) {
    const bool lower = y & 1;
    int share = 2;
    if (lines == PixelLines::TopField) share = lower ? 3 : 1;
    if (lines == PixelLines::BottomField) share = lower ? 1 : 3;
    const int row = y >> 1;
    const int last = chromaRows - 1;
    return {
        std::min(row, last), std::clamp(lower ? row + 1 : row - 1, 0, last), {8 - share, share}};
}

PixelTap TapAtChromaRow(int k, int rows, PixelLines lines) {
    int upper = 4;
    if (lines == PixelLines::TopField) upper = 6;
    if (lines == PixelLines::BottomField) upper = 2;
    return {std::min(2 * k, rows - 1), std::min(2 * k + 1, rows - 1), {upper, 8 - upper}};
}

PixelScratch::PixelScratch(int rows, int words) {
    if (rows == 0) return;
    fStride = whole_lines((words + kWidePadding) * 2) + kStagger;
    fBlock = std::make_unique<PixelByte[]>(fStride * rows + kAlignment);
    const auto address = reinterpret_cast<std::uintptr_t>(fBlock.get());
    fStart = fBlock.get() + (-address & (kAlignment - 1));
}

// Per slot: luma, U, V of a packed row; U, V of a semi-planar one.
PixelYuvSource::PixelYuvSource(const PixelFormat& format, int width, const PixelKernels& kernels)
    : fFormat(format),
      fKernels(kernels),
      fWidth(width),
      fScratch(format.shape == PixelShape::Planar ? 0 : 6, width / 2 + 1) {}

void PixelYuvSource::Start(const PixelView& view) {
    fView = view;
    fHeld[0] = fHeld[1] = -1;
}

const void* PixelYuvSource::Luma(int y) {
    return IsPacked() ? fScratch.Row<void>(3 * slot_of(y)) : fView.Row<void>(0, y);
}

PixelYuvSource::Chroma PixelYuvSource::ChromaRow(int row) {
    if (fFormat.shape == PixelShape::Planar)
        return {fView.Row<void>(1, row), fView.Row<void>(2, row)};
    const int slot = slot_of(row);
    return {fScratch.Row<void>(3 * slot + 1), fScratch.Row<void>(3 * slot + 2)};
}

void PixelYuvSource::Unpack(int y, PixelByte* luma, PixelByte* u, PixelByte* v) const {
    fKernels.unpack[fFormat.swapped](fView.Row(0, y), luma, u, v, fWidth);
}

void PixelYuvSource::Split(int row, PixelByte* u, PixelByte* v) const {
    fKernels.splitUv(fView.Row(1, row), u, v, fFormat.ChromaWidth(fWidth));
}

int PixelYuvSource::slot_of(int row) {
    const int slot = row & 1;
    if (fHeld[slot] == row) return slot;
    fHeld[slot] = row;
    PixelByte* u = fScratch.Row<PixelByte>(3 * slot + 1);
    PixelByte* v = fScratch.Row<PixelByte>(3 * slot + 2);
    if (IsPacked()) {
        Unpack(row, fScratch.Row<PixelByte>(3 * slot), u, v);
    } else {
        Split(row, u, v);
    }
    return slot;
}

PixelYuvSink::PixelYuvSink(const PixelFormat& format, int width, const PixelKernels& kernels)
    : fFormat(format),
      fKernels(kernels),
      fWidth(width),
      fScratch(format.shape == PixelShape::Planar ? 0 : 3, width / 2 + 1) {}

void* PixelYuvSink::Luma(int y) const {
    return IsPacked() ? fScratch.Row<void>(0) : fView.Row<void>(0, y);
}

void* PixelYuvSink::U(int row) const {
    return fFormat.shape == PixelShape::Planar ? fView.Row<void>(1, row) : fScratch.Row<void>(1);
}

void* PixelYuvSink::V(int row) const {
    return fFormat.shape == PixelShape::Planar ? fView.Row<void>(2, row) : fScratch.Row<void>(2);
}

void PixelYuvSink::EndLuma(int y) const {
    if (!IsPacked()) return;
    Pack(y, fScratch.Row<PixelByte>(0), fScratch.Row<PixelByte>(1), fScratch.Row<PixelByte>(2));
}

void PixelYuvSink::EndChroma(int row) const {
    if (!IsSemiPlanar()) return;
    Merge(row, fScratch.Row<PixelByte>(1), fScratch.Row<PixelByte>(2));
}

void PixelYuvSink::Pack(int y, const PixelByte* luma, const PixelByte* u,
                        const PixelByte* v) const {
    fKernels.pack[fFormat.swapped](luma, u, v, fView.Row(0, y), fWidth);
}

void PixelYuvSink::Merge(int row, const PixelByte* u, const PixelByte* v) const {
    fKernels.mergeUv(u, v, fView.Row(1, row), fFormat.ChromaWidth(fWidth));
}

PixelRgbSource::PixelRgbSource(const PixelFormat& format, int width, const PixelKernels& kernels)
    : fUnpack(unpack_of(format, kernels)), fWidth(width), fScratch(fUnpack ? 2 : 0, 2 * width) {}

const PixelByte* PixelRgbSource::Bgra(int y, int slot) const {
    if (!fUnpack) return fView.Row(0, y);
    PixelByte* row = fScratch.Row<PixelByte>(slot);
    fUnpack(fView.Row(0, y), row, fWidth);
    return row;
}

void PixelRgbSource::Unpack(int y, PixelByte* bgra) const {
    fUnpack(fView.Row(0, y), bgra, fWidth);
}

PixelRgbSink::PixelRgbSink(const PixelFormat& format, int width, const PixelKernels& kernels)
    : fPack(pack_of(format, kernels)), fWidth(width), fScratch(fPack ? 1 : 0, 2 * width) {}

PixelByte* PixelRgbSink::Bgra(int y) const {
    return fPack ? fScratch.Row<PixelByte>(0) : fView.Row(0, y);
}

void PixelRgbSink::EndRow(int y) const {
    if (fPack) Pack(y, fScratch.Row<PixelByte>(0));
}

void PixelRgbSink::Pack(int y, const PixelByte* bgra) const {
    fPack(bgra, fView.Row(0, y), fWidth);
}

}  // namespace Quillon::Orb
