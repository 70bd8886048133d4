#include "orb/CPixelBufferDataReference.h"

namespace Quillon::Orb {

CPixelBufferDataReference::CPixelBufferDataReference(CByteArray* bytes, int width, int height,
                                                     int stride)
    : CPixelDataReference(kType),
      fBytes(RObject<CByteArray>::Share(bytes)),
      fWidth(width),
      fHeight(height),
      fStride(stride) {}

Result CPixelBufferDataReference::Lock(int mode) {
    Result result = CheckMode(mode);
    if (result.Failed()) return result;
    if (!fBytes) return ResultNullPointer();
    return 0;
}

// Main memory is always there: nothing is to be let go.
void CPixelBufferDataReference::Unlock() {}

int CPixelBufferDataReference::GetLength() {
    return fBytes ? fBytes->GetLength() : 0;
}
unsigned char* CPixelBufferDataReference::GetData() {
    return fBytes ? fBytes->GetData() : nullptr;
}
int CPixelBufferDataReference::GetStride() {
    return fStride;
}
int CPixelBufferDataReference::GetWidth() {
    return fWidth;
}
int CPixelBufferDataReference::GetHeight() {
    return fHeight;
}

}  // namespace Quillon::Orb
