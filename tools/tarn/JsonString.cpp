#include "JsonString.h"

#include <algorithm>
#include <fmt/format.h>
#include <string_view>

namespace {

constexpr const char* kUnknown = "\xef\xbf\xbd";  // U+FFFD

/// Bytes that begin alike have as many behind them; those of the second tell sequences that are too
/// long for what they say, surrogates, and what is beyond Unicode.
struct Lead {
    unsigned char first;
    unsigned char last;
    std::size_t length;
    unsigned char leastSecond;
    unsigned char mostSecond;
};

constexpr Lead kLeads[] = {
    {0x00, 0x7f, 1, 0x80, 0xbf}, {0xc2, 0xdf, 2, 0x80, 0xbf}, {0xe0, 0xe0, 3, 0xa0, 0xbf},
    {0xe1, 0xec, 3, 0x80, 0xbf}, {0xed, 0xed, 3, 0x80, 0x9f}, {0xee, 0xef, 3, 0x80, 0xbf},
    {0xf0, 0xf0, 4, 0x90, 0xbf}, {0xf1, 0xf3, 4, 0x80, 0xbf}, {0xf4, 0xf4, 4, 0x80, 0x8f},
};

unsigned char byte_of(char c) {
    return static_cast<unsigned char>(c);
}

/// Bytes of the character that `text` begins with; 0 if it begins with none.
std::size_t length_of_character(std::string_view text) {
    const unsigned char first = byte_of(text[0]);
    const auto* const lead =
        std::find_if(std::begin(kLeads), std::end(kLeads),
                     [first](const Lead& one) { return first >= one.first && first <= one.last; });
    if (lead == std::end(kLeads) || text.size() < lead->length) return 0;
    if (lead->length == 1) return 1;
    const unsigned char second = byte_of(text[1]);
    if (second < lead->leastSecond || second > lead->mostSecond) return 0;
    const bool goesOn = std::all_of(text.begin() + 2, text.begin() + lead->length,
                                    [](char c) { return (byte_of(c) & 0xc0) == 0x80; });
    return goesOn ? lead->length : 0;
}

void append_character(std::string& out, std::string_view character) {
    const unsigned char first = byte_of(character[0]);
    if (first < 0x20) {
        out += fmt::format("\\u{:04x}", first);
        return;
    }
    if (first == '"' || first == '\\') out += '\\';
    out += character;
}

}  // namespace

std::string JsonString(const std::string& text) {
    std::string out = "\"";
    for (std::string_view rest = text; !rest.empty();) {
        const std::size_t length = length_of_character(rest);
        if (length == 0) {
            out += kUnknown;
        } else {
            append_character(out, rest.substr(0, length));
        }
        rest.remove_prefix(std::max<std::size_t>(1, length));
    }
    return out + "\"";
}
