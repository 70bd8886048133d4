#include "orb/CMemoryDataReference.h"

namespace Quillon::Orb {

CMemoryDataReference::CMemoryDataReference(CByteArray* bytes)
    : CDataReference(kType), fBytes(RObject<CByteArray>::Share(bytes)) {}

Result CMemoryDataReference::LockBytes(int mode, unsigned char*& data, int& length) {
    data = nullptr;
    length = 0;
    Result result = CheckMode(mode);
    if (result.Failed()) return result;
    if (!fBytes) return ResultNullPointer();
    data = fBytes->GetData();
    length = fBytes->GetLength();
    return 0;
}

CByteArray* CMemoryDataReference::GetByteArray() const {
    return RObject<CByteArray>(fBytes).Detach();
}

}  // namespace Quillon::Orb
