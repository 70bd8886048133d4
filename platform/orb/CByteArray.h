#pragma once

#include "orb/CObject.h"
#include "orb/RObject.h"

namespace Quillon::Orb {

/// A run of bytes of fixed length, its own or somebody else's.
///
/// Its own bytes come from the shared BlockPool: aligned, with room to read past the end.
class ORB_API CByteArray : public CObject {
public:
    static constexpr unsigned int kType = 'byts';

    /// Copies `length` bytes.
    CByteArray(const unsigned char* data, int length);
    /// Wraps bytes without copying. A reference to `owner` is held while the array lives; with
    /// none, the caller keeps the bytes alive.
    CByteArray(int length, unsigned char* data, const CObject* owner);
    /// `length` elements of `elementSize` bytes, contents undefined.
    CByteArray(int length, int elementSize);
    ~CByteArray() override;

    bool IsType(unsigned int type) const override { return type == kType || CObject::IsType(type); }
    bool Equals(CObject* other) const override;
    int GetHashCode() const override;

    /// Null when the length is 0 or when there was no memory.
    unsigned char* GetData() const noexcept { return fData; }
    /// Bytes; 0 when there was no memory.
    int GetLength() const noexcept { return fLength; }
    /// Gives up bytes at the end, of an array that turned out shorter than was thought.
    void Shorten(int length) noexcept;

private:
    void take(long long length) noexcept;

    unsigned char* fData = nullptr;
    int fLength = 0;
    bool fPooled = false;
    RObject<const CObject> fOwner;
};

}  // namespace Quillon::Orb
