#include "orb/CPixelDataReference.h"

namespace Quillon::Orb {

Result CPixelDataReference::LockBytes(int mode, unsigned char*& data, int& length) {
    data = nullptr;
    length = 0;
    Result result = Lock(mode);
    if (result.Failed()) return result;
    data = GetData();
    length = GetLength();
    return result;
}

void CPixelDataReference::UnlockBytes() {
    Unlock();
}

}  // namespace Quillon::Orb
