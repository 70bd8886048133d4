#pragma once

#include <string>

namespace Quillon::Orb {

/// A four-character code in quotes, for messages; what does not print shows as a dot.
inline std::string four_text(unsigned int code) {
    std::string text = "'....'";
    for (int i = 0; i < 4; ++i) {
        const char c = static_cast<char>(code >> (24 - 8 * i));
        if (c >= ' ' && c < 127) text[static_cast<std::size_t>(i) + 1] = c;
    }
    return text;
}

}  // namespace Quillon::Orb
