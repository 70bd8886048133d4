#include "orb/CMediaSample.h"

namespace Quillon::Orb {

CMediaSample::CMediaSample(unsigned int type, const CMediaSample* source) : CObject(type, nullptr) {
    if (!source) return;
    fTime = source->fTime;
    fDuration = source->fDuration;
    fHint = source->fHint;
    fReference = source->fReference;
}

Result CMediaSample::SetTime(long long ticks) {
    fTime = ticks;
    return 0;
}

Result CMediaSample::SetDuration(long long ticks) {
    fDuration = ticks;
    return 0;
}

Result CMediaSample::SetHint(int hint) {
    fHint = hint;
    return 0;
}

Result CMediaSample::SetDataReference(CDataReference* reference) {
    fReference = RObject<CDataReference>::Share(reference);
    return 0;
}

CLockedDataReference* CMediaSample::GetLockedDataReference(int mode) const {
    return fReference ? new CLockedDataReference(fReference.Get(), mode) : nullptr;
}

}  // namespace Quillon::Orb
