#include "orb/CString.h"

#include <functional>

#include "orb/RObject.h"

namespace Quillon::Orb {

CString::CString(const char* text) : CObject(kType, nullptr), fText(text ? text : "") {}

bool CString::Equals(CObject* other) const {
    return other && other->IsType(kType) && static_cast<CString*>(other)->fText == fText;
}

int CString::GetHashCode() const {
    return static_cast<int>(std::hash<std::string>{}(fText));
}

CString* CString::ToString() const {
    return RObject<CString>::Share(const_cast<CString*>(this)).Detach();
}

}  // namespace Quillon::Orb
