#pragma once

#include "orb/CMediaProperties.h"
#include "orb/ColorSpace.h"
#include "orb/Rational.h"

namespace Quillon::Orb {

/// The shape of a stream of pictures, raw or encoded.
class ORB_API CVideoProperties : public CMediaProperties {
public:
    static constexpr unsigned int kType = 'vprp';

    enum FieldOrder { kProgressive = 1, kTopFieldFirst = 2, kBottomFieldFirst = 3 };
    enum VideoRange { kLimitedRange = 1, kFullRange = 2 };

    /// Copies; null makes an empty object: no format, no size, progressive, square pixels, limited
    /// range, colour unknown.
    explicit CVideoProperties(const CVideoProperties* source);

    bool IsType(unsigned int type) const override {
        return type == kType || CMediaProperties::IsType(type);
    }

    // ResultInvalidArgument, with nothing changed, for what a picture cannot have: a negative size
    // or duration, a field order but 1 to 3, a range but 1 and 2.
    Result SetWidth(int width);
    Result SetHeight(int height);
    Result SetFrameDuration(long long ticks);
    /// Taken as it comes, a zero below the line included.
    Result SetFrameRate(Rational<long long> rate);
    Result SetFieldOrder(int order);
    Result SetPixelAspectRatio(Rational<int> ratio);
    Result SetColorSpace(ColorSpace colorSpace);
    Result SetVideoRange(int range);
    /// Of an encoded stream: frames by which decoding runs ahead of display at most.
    Result SetReorderDepth(int frames);

    int GetWidth() const noexcept { return fWidth; }
    int GetHeight() const noexcept { return fHeight; }
    long long GetFrameDuration() const noexcept { return fFrameDuration; }
    /// What SetFrameRate said; else the time scale over the frame duration; 0 over 1 if unknown.
    Rational<long long> GetFrameRate() const;
    int GetFieldOrder() const noexcept { return fFieldOrder; }
    Rational<int> GetPixelAspectRatio() const noexcept { return fPixelAspectRatio; }
    ColorSpace GetColorSpace() const noexcept { return fColorSpace; }
    int GetVideoRange() const noexcept { return fVideoRange; }

    /// 0 when pictures are decoded in the order of display; -1 when nobody said.
    int GetReorderDepth() const noexcept { return fReorderDepth; }

    /// Bytes per row, rounded up to a multiple of `alignment` bytes: 1 rounds nothing. 0 when the
    /// format is not raw or there is no size. Of planar formats this is the luma plane's pitch.
    int GetStride(int alignment) const;
    /// Bytes of a picture with rows of GetStride(alignment); 0 likewise.
    int GetSampleLength(int alignment) const;

protected:
    CVideoProperties(unsigned int type, const CVideoProperties* source);

private:
    int fWidth = 0;
    int fHeight = 0;
    long long fFrameDuration = 0;
    Rational<long long> fFrameRate{0, 1};
    int fFieldOrder = kProgressive;
    Rational<int> fPixelAspectRatio{1, 1};
    ColorSpace fColorSpace;
    int fVideoRange = kLimitedRange;
    int fReorderDepth = -1;
};

}  // namespace Quillon::Orb
