#include "orb/CVideoProperties.h"

#include "orb/VideoFormat.h"

namespace Quillon::Orb {

CVideoProperties::CVideoProperties(const CVideoProperties* source)
    : CVideoProperties(kType, source) {}

CVideoProperties::CVideoProperties(unsigned int type, const CVideoProperties* source)
    : CMediaProperties(type, source) {
    if (!source) return;
    fWidth = source->fWidth;
    fHeight = source->fHeight;
    fFrameDuration = source->fFrameDuration;
    fFrameRate = source->fFrameRate;
    fFieldOrder = source->fFieldOrder;
    fPixelAspectRatio = source->fPixelAspectRatio;
    fColorSpace = source->fColorSpace;
    fVideoRange = source->fVideoRange;
    fReorderDepth = source->fReorderDepth;
}

Result CVideoProperties::SetWidth(int width) {
    if (width < 0) return ResultInvalidArgument("a width of %d", width);
    fWidth = width;
    return 0;
}

Result CVideoProperties::SetHeight(int height) {
    if (height < 0) return ResultInvalidArgument("a height of %d", height);
    fHeight = height;
    return 0;
}

Result CVideoProperties::SetFrameDuration(long long ticks) {
    if (ticks < 0) return ResultInvalidArgument("a frame duration of %lld", ticks);
    fFrameDuration = ticks;
    return 0;
}

Result CVideoProperties::SetFrameRate(Rational<long long> rate) {
    fFrameRate = rate;
    return 0;
}

Result CVideoProperties::SetFieldOrder(int order) {
    if (order < kProgressive || order > kBottomFieldFirst) {
        return ResultInvalidArgument("a field order of %d", order);
    }
    fFieldOrder = order;
    return 0;
}

Result CVideoProperties::SetPixelAspectRatio(Rational<int> ratio) {
    fPixelAspectRatio = ratio;
    return 0;
}

Result CVideoProperties::SetColorSpace(ColorSpace colorSpace) {
    fColorSpace = colorSpace;
    return 0;
}

Result CVideoProperties::SetVideoRange(int range) {
    if (range != kLimitedRange && range != kFullRange) {
        return ResultInvalidArgument("a video range of %d", range);
    }
    fVideoRange = range;
    return 0;
}

Result CVideoProperties::SetReorderDepth(int frames) {
    if (frames < 0) return ResultInvalidArgument("a reorder depth of %d", frames);
    fReorderDepth = frames;
    return 0;
}

Rational<long long> CVideoProperties::GetFrameRate() const {
    if (fFrameRate.numerator > 0) return fFrameRate;
    if (fFrameDuration > 0 && GetTimescale() > 0) return {GetTimescale(), fFrameDuration};
    return {0, 1};
}

int CVideoProperties::GetStride(int alignment) const {
    return VideoFormat::GetStride(GetFormat(), fWidth, alignment);
}

int CVideoProperties::GetSampleLength(int alignment) const {
    return VideoFormat::GetSampleLength(GetFormat(), fWidth, fHeight, GetStride(alignment));
}

}  // namespace Quillon::Orb
