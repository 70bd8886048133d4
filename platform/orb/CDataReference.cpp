#include "orb/CDataReference.h"

namespace Quillon::Orb {

Result CDataReference::LockBytes(int, unsigned char*& data, int& length) {
    data = nullptr;
    length = 0;
    return ResultNotSupported("these data do not lie in one run of bytes");
}

void CDataReference::UnlockBytes() {}

Result CDataReference::CheckMode(int mode) {
    if (mode < kRead || mode > kReadWrite) return ResultInvalidArgument("a lock mode of %d", mode);
    return 0;
}

}  // namespace Quillon::Orb
