#include "orb/CBufferDataReference.h"

namespace Quillon::Orb {

CBufferDataReference::CBufferDataReference(CByteArray* bytes)
    : CDataReference(kType), fBytes(RObject<CByteArray>::Share(bytes)) {}

Result CBufferDataReference::LockBytes(int mode, unsigned char*& data, int& length) {
    data = nullptr;
    length = 0;
    Result result = CheckMode(mode);
    if (result.Failed()) return result;
    if (!fBytes) return ResultNullPointer();
    data = fBytes->GetData();
    length = fBytes->GetLength();
    return 0;
}

CByteArray* CBufferDataReference::GetByteArray() const {
    return RObject<CByteArray>(fBytes).Detach();
}

}  // namespace Quillon::Orb
