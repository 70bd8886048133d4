#pragma once

#include "orb/CByteArray.h"
#include "orb/CPixelDataReference.h"
#include "orb/RObject.h"

namespace Quillon::Orb {

/// Pixels in main memory, in a byte array that it shares.
class ORB_API CPixelBufferDataReference : public CPixelDataReference {
public:
    static constexpr unsigned int kType = 'pixb';

    CPixelBufferDataReference(CByteArray* bytes, int width, int height, int stride);

    bool IsType(unsigned int type) const override {
        return type == kType || CPixelDataReference::IsType(type);
    }

    /// ResultNullPointer when there are no bytes.
    Result Lock(int mode) override;
    void Unlock() override;
    int GetLength() override;
    unsigned char* GetData() override;
    int GetStride() override;
    int GetWidth() override;
    int GetHeight() override;

private:
    const RObject<CByteArray> fBytes;
    const int fWidth;
    const int fHeight;
    const int fStride;
};

}  // namespace Quillon::Orb
