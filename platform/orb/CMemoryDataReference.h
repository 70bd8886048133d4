#pragma once

#include "orb/CByteArray.h"
#include "orb/CDataReference.h"
#include "orb/RObject.h"

namespace Quillon::Orb {

/// The bytes of an encoded sample.
class ORB_API CMemoryDataReference : public CDataReference {
public:
    static constexpr unsigned int kType = 'dram';

    /// Shares the array.
    explicit CMemoryDataReference(CByteArray* bytes);

    bool IsType(unsigned int type) const override {
        return type == kType || CDataReference::IsType(type);
    }
    /// ResultNullPointer when there is no array.
    Result LockBytes(int mode, unsigned char*& data, int& length) override;

    CByteArray* GetByteArray() const;

private:
    const RObject<CByteArray> fBytes;
};

}  // namespace Quillon::Orb
