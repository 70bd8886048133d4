#pragma once

#include "orb/CDataReference.h"
#include "orb/CLockedDataReference.h"
#include "orb/CObject.h"
#include "orb/RObject.h"
#include "orb/Result.h"

namespace Quillon::Orb {

/// A piece of a stream: times in the ticks of its track, and a reference to its data.
/// Whoever makes a sample fills it; handed on, it is only read, by any thread.
class ORB_API CMediaSample : public CObject {
public:
    static constexpr unsigned int kType = 'samp';
    static constexpr int kHintKeyFrame = 1;  ///< the encoder shall make a key frame of this picture

    bool IsType(unsigned int type) const override { return type == kType || CObject::IsType(type); }

    /// Of an encoded sample this is the decode time.
    Result SetTime(long long ticks);
    Result SetDuration(long long ticks);
    Result SetHint(int hint);
    /// Shares the reference; null takes it away.
    Result SetDataReference(CDataReference* reference);

    long long GetTime() const noexcept { return fTime; }
    long long GetDuration() const noexcept { return fDuration; }
    int GetHint() const noexcept { return fHint; }
    bool HasDataReference() const noexcept { return static_cast<bool>(fReference); }
    /// The data, locked in `mode` (CDataReference::LockMode); null when there are none.
    CLockedDataReference* GetLockedDataReference(int mode) const;

    /// The data reference if it is of this kind, else null: CPixelDataReference,
    /// CMemoryDataReference, CMpeg4AvcDataReference and the like.
    template <class T>
    T* GetDataReference() const {
        if (!fReference || !fReference->IsType(T::kType)) return nullptr;
        fReference->Acquire();
        return static_cast<T*>(fReference.Get());
    }

protected:
    CMediaSample(unsigned int type, const CMediaSample* source);

private:
    long long fTime = 0;
    long long fDuration = 0;
    int fHint = 0;
    RObject<CDataReference> fReference;
};

}  // namespace Quillon::Orb
