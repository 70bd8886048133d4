#pragma once

#include <memory>

#include "PixelFormat.h"
#include "PixelKernels.h"

namespace Quillon::Orb {

/// Which lines of a frame a picture is made of: it decides where 4:2:0 chroma stands between them.
///
/// In a frame a chroma line lies half way between its two luma lines. In a field of an interlaced
/// frame it lies a quarter of the way down in the top field, three quarters in the bottom field,
/// because the fields take the frame's chroma lines in turn.
enum class PixelLines { Frame, TopField, BottomField };

/// A frame or one field of it.
struct PixelView {
    PixelImage image;
    int rows = 0;
    int chromaRows = 0;
    PixelLines lines = PixelLines::Frame;

    template <class T = PixelByte>
    T* Row(int plane, int y) const {
        return reinterpret_cast<T*>(image.planes[plane] +
                                    static_cast<std::ptrdiff_t>(image.strides[plane]) * y);
    }
};

/// Two chroma rows and their shares; the same row twice where nothing is mixed.
struct PixelTap {
    int near;
    int far;
    PixelMix mix;
};

/// What stands at luma row `y` of 4:2:0 with `chromaRows` rows.
PixelTap TapAtLumaRow(int y, int chromaRows, PixelLines lines);

/// What makes chroma row `k` of 4:2:0 out of one chroma row for each of `rows` luma rows.
PixelTap TapAtChromaRow(int k, int rows, PixelLines lines);

/// Rows of memory for what stands between two steps; kept for the life of a plan.
class PixelScratch {
public:
    /// `rows` rows of `words` 16-bit words, each with room behind it for whole vectors.
    PixelScratch(int rows, int words);

    template <class T>
    T* Row(int index) const {
        return reinterpret_cast<T*>(fStart + fStride * index);
    }

private:
    std::unique_ptr<PixelByte[]> fBlock;
    PixelByte* fStart = nullptr;
    std::ptrdiff_t fStride = 0;
};

/// Reads a picture of Y, U and V row by row, whatever its shape.
///
/// Rows of planar pictures are handed out where they lie; the others are taken apart into memory of
/// this object. The last two rows asked for stay valid, which is what mixing needs.
class PixelYuvSource {
public:
    PixelYuvSource(const PixelFormat& format, int width, const PixelKernels& kernels);

    void Start(const PixelView& view);
    const void* Luma(int y);
    struct Chroma {
        const void* u;
        const void* v;
    };
    Chroma ChromaRow(int row);

    bool IsPacked() const { return fFormat.shape == PixelShape::Packed; }
    bool IsSemiPlanar() const { return fFormat.shape == PixelShape::SemiPlanar; }

    /// Takes a packed row apart into the caller's rows.
    void Unpack(int y, PixelByte* luma, PixelByte* u, PixelByte* v) const;
    /// Takes a row of UV apart into the caller's rows.
    void Split(int row, PixelByte* u, PixelByte* v) const;

    const PixelView& View() const { return fView; }

private:
    int slot_of(int row);

    const PixelFormat& fFormat;
    const PixelKernels& fKernels;
    int fWidth;
    PixelView fView;
    PixelScratch fScratch;
    int fHeld[2] = {-1, -1};  ///< the rows that lie in the two slots of fScratch
};

/// Takes a picture of Y, U and V row by row, whatever its shape: the caller fills the rows that
/// Luma, U and V name and then ends the row, upon which it is put together if need be.
class PixelYuvSink {
public:
    PixelYuvSink(const PixelFormat& format, int width, const PixelKernels& kernels);

    void Start(const PixelView& view) { fView = view; }
    void* Luma(int y) const;
    void* U(int row) const;
    void* V(int row) const;
    void EndLuma(int y) const;      ///< after luma and, where 4:2:2 is packed, chroma of the row
    void EndChroma(int row) const;  ///< after both chroma rows

    bool IsPacked() const { return fFormat.shape == PixelShape::Packed; }
    bool IsSemiPlanar() const { return fFormat.shape == PixelShape::SemiPlanar; }
    void Pack(int y, const PixelByte* luma, const PixelByte* u, const PixelByte* v) const;
    void Merge(int row, const PixelByte* u, const PixelByte* v) const;

    const PixelView& View() const { return fView; }

private:
    const PixelFormat& fFormat;
    const PixelKernels& fKernels;
    int fWidth;
    PixelView fView;
    PixelScratch fScratch;
};

/// Reads any red, green and blue as rows of BGRA.
class PixelRgbSource {
public:
    PixelRgbSource(const PixelFormat& format, int width, const PixelKernels& kernels);

    void Start(const PixelView& view) { fView = view; }
    /// The row as BGRA; `slot` 0 or 1 says which of two rows of memory it may take.
    const PixelByte* Bgra(int y, int slot) const;
    void Unpack(int y, PixelByte* bgra) const;
    bool IsBgra() const { return fUnpack == nullptr; }

private:
    void (*fUnpack)(const PixelByte* from, PixelByte* to, int n);
    int fWidth;
    PixelView fView;
    PixelScratch fScratch;
};

/// Takes rows of BGRA and stores them as any red, green and blue.
class PixelRgbSink {
public:
    PixelRgbSink(const PixelFormat& format, int width, const PixelKernels& kernels);

    void Start(const PixelView& view) { fView = view; }
    PixelByte* Bgra(int y) const;
    void EndRow(int y) const;
    void Pack(int y, const PixelByte* bgra) const;
    bool IsBgra() const { return fPack == nullptr; }

private:
    void (*fPack)(const PixelByte* from, PixelByte* to, int n);
    int fWidth;
    PixelView fView;
    PixelScratch fScratch;
};

}  // namespace Quillon::Orb
