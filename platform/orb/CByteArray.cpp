#include "orb/CByteArray.h"

#include <climits>
#include <cstring>
#include <functional>
#include <string_view>

#include "orb/BlockPool.h"

namespace Quillon::Orb {

CByteArray::CByteArray(const unsigned char* data, int length) : CObject(kType, nullptr) {
    take(data ? length : 0);
    if (fLength > 0) std::memcpy(fData, data, static_cast<std::size_t>(fLength));
}

CByteArray::CByteArray(int length, unsigned char* data, const CObject* owner)
    : CObject(kType, nullptr),
      fData(data),
      fLength(data && length > 0 ? length : 0),
      fOwner(RObject<const CObject>::Share(owner)) {}

CByteArray::CByteArray(int length, int elementSize) : CObject(kType, nullptr) {
    take(static_cast<long long>(length) * elementSize);
}

CByteArray::~CByteArray() {
    if (fPooled) BlockPool::Shared().Give(fData);
}

void CByteArray::take(long long length) noexcept {
    if (length <= 0 || length > INT_MAX) return;
    fData = BlockPool::Shared().Take(static_cast<std::size_t>(length));
    if (!fData) return;
    fPooled = true;
    fLength = static_cast<int>(length);
}

void CByteArray::Shorten(int length) noexcept {
    if (length >= 0 && length < fLength) fLength = length;
}

bool CByteArray::Equals(CObject* other) const {
    if (!other || !other->IsType(kType)) return false;
    const auto* bytes = static_cast<CByteArray*>(other);
    return fLength == bytes->fLength &&
           (fLength == 0 ||
            std::memcmp(fData, bytes->fData, static_cast<std::size_t>(fLength)) == 0);
}

int CByteArray::GetHashCode() const {
    const std::string_view bytes(reinterpret_cast<const char*>(fData),
                                 static_cast<std::size_t>(fLength));
    return static_cast<int>(std::hash<std::string_view>{}(bytes));
}

}  // namespace Quillon::Orb
