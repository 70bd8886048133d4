#pragma once

#include <string_view>

namespace Quillon::Orb {

/// The key of a property. Keys are constants; two are the same when their texts are.
class PropertyName {
public:
    constexpr explicit PropertyName(const char* text) : fText(text) {}

    constexpr const char* GetText() const { return fText; }
    friend constexpr bool operator==(const PropertyName& a, const PropertyName& b) {
        return a.fText == b.fText || std::string_view(a.fText) == std::string_view(b.fText);
    }

private:
    const char* fText;
};

}  // namespace Quillon::Orb
