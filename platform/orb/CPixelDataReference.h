#pragma once

#include "orb/CDataReference.h"

namespace Quillon::Orb {

/// The pixels of a raw picture. Add-ons and hardware components derive from it.
///
/// A lock makes the pixels reachable; it keeps nobody out. Locks may nest and may be held by
/// several threads; each Lock that succeeded wants its Unlock.
class ORB_API CPixelDataReference : public CDataReference {
public:
    static constexpr unsigned int kType = 'pixl';

    bool IsType(unsigned int type) const override {
        return type == kType || CDataReference::IsType(type);
    }

    /// 1 read, 2 write, 3 both; ResultInvalidArgument for another mode.
    virtual Result Lock(int mode) = 0;
    virtual void Unlock() = 0;
    /// Bytes from the first row to the end of the last plane. Valid while locked.
    virtual int GetLength() = 0;
    /// The first row. Valid while locked.
    virtual unsigned char* GetData() = 0;
    /// Bytes from row to row, of planar formats those of the luma plane; see
    /// VideoFormat::GetLayout.
    virtual int GetStride() = 0;
    virtual int GetWidth() = 0;
    virtual int GetHeight() = 0;

    Result LockBytes(int mode, unsigned char*& data, int& length) override;
    void UnlockBytes() override;

protected:
    CPixelDataReference() : CDataReference(kType) {}
    explicit CPixelDataReference(unsigned int type) : CDataReference(type) {}
};

}  // namespace Quillon::Orb
