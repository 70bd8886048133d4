#pragma once

#include <string>

#include "orb/CObject.h"

namespace Quillon::Orb {

/// A text that does not change. Equal to any other with the same bytes.
class ORB_API CString : public CObject {
public:
    static constexpr unsigned int kType = 'str ';

    /// Copies the text; null is an empty text.
    explicit CString(const char* text);

    bool IsType(unsigned int type) const override { return type == kType || CObject::IsType(type); }
    bool Equals(CObject* other) const override;
    int GetHashCode() const override;
    CString* ToString() const override;

    const char* GetText() const noexcept { return fText.c_str(); }
    /// Bytes, without the closing zero.
    int GetLength() const noexcept { return static_cast<int>(fText.size()); }

private:
    const std::string fText;
};

}  // namespace Quillon::Orb
