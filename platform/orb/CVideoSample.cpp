#include "orb/CVideoSample.h"

namespace Quillon::Orb {

CVideoSample::CVideoSample(const CVideoSample* source) : CMediaSample(kType, source) {
    if (!source) return;
    fPictureType = source->fPictureType;
    fCompositionOffset = source->fCompositionOffset;
}

CVideoSample::CVideoSample(int pictureType, long long duration, int hint)
    : CMediaSample(kType, nullptr), fPictureType(pictureType) {
    SetDuration(duration);
    SetHint(hint);
}

Result CVideoSample::SetPictureType(int type) {
    fPictureType = type;
    return 0;
}

Result CVideoSample::SetCompositionOffset(long long ticks) {
    fCompositionOffset = ticks;
    return 0;
}

}  // namespace Quillon::Orb
