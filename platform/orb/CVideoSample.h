#pragma once

#include "orb/CMediaSample.h"

namespace Quillon::Orb {

/// A picture, raw or encoded.
class ORB_API CVideoSample : public CMediaSample {
public:
    static constexpr unsigned int kType = 'vsmp';

    /// What an encoded picture is to the others.
    enum PictureType {
        kKeyPicture = 0,         ///< decoding can start here
        kReferencePicture = 1,   ///< others refer to it
        kDisposablePicture = 2,  ///< nothing refers to it
    };

    /// Copies and shares the data; null makes an empty sample.
    explicit CVideoSample(const CVideoSample* source);
    CVideoSample(int pictureType, long long duration, int hint);

    bool IsType(unsigned int type) const override {
        return type == kType || CMediaSample::IsType(type);
    }

    Result SetPictureType(int type);
    /// Ticks from decode time to display time; negative where a picture is shown before the time of
    /// the frame whose place in the input it took.
    Result SetCompositionOffset(long long ticks);

    int GetPictureType() const noexcept { return fPictureType; }
    long long GetCompositionOffset() const noexcept { return fCompositionOffset; }

private:
    int fPictureType = kKeyPicture;
    long long fCompositionOffset = 0;
};

}  // namespace Quillon::Orb
