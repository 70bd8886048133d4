#include "spar/zXMLText.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>

#include "spar/zStringID.h"

namespace {

constexpr std::string_view kIDPrefix = "_xid_";
constexpr std::string_view kEmptyName = "_x_";
constexpr std::string_view kTextWord = "text";

struct KindWord {
    zVariableType kind;
    std::string_view word;
};

constexpr KindWord kKindWords[] = {
    {ZV_BOOL, "bool"},     {ZV_INT32, "int32"}, {ZV_UINT32, "uint32"}, {ZV_INT64, "int64"},
    {ZV_UINT64, "uint64"}, {ZV_FLOAT, "float"}, {ZV_DOUBLE, "double"}, {ZV_STRING, kTextWord},
};

bool is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

void append_hex(std::string& out, unsigned char byte) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    out += kDigits[byte >> 4];
    out += kDigits[byte & 15];
}

/// The byte that two hexadecimal digits say, or -1.
int hex_byte(std::string_view text) {
    unsigned int value = 0;
    if (text.size() < 2) return -1;
    const auto result = std::from_chars(text.data(), text.data() + 2, value, 16);
    return result.ec == std::errc() && result.ptr == text.data() + 2 ? static_cast<int>(value) : -1;
}

/// Names in xml... belong to the XML standards.
bool is_reserved(std::string_view name) {
    return name.size() >= 3 && (name[0] | 32) == 'x' && (name[1] | 32) == 'm' &&
           (name[2] | 32) == 'l';
}

bool is_hex(char c) {
    return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

/// Whether an underscore, with what follows it, would be taken for one of our own forms. Two digits
/// are enough: a character that is escaped behind them would bring the closing underscore.
bool looks_like_ours(std::string_view name, std::size_t at) {
    const std::string_view rest = name.substr(at);
    if (rest.size() >= 4 && rest[1] == 'x' && is_hex(rest[2]) && is_hex(rest[3])) return true;
    return at == 0 && (rest == kEmptyName || rest == kUntagged || rest.starts_with(kIDPrefix));
}

bool fits_name(std::string_view name, std::size_t at) {
    const char c = name[at];
    if (c == '_') return !looks_like_ours(name, at);
    if (is_letter(c)) return at > 0 || !is_reserved(name);
    // A colon would make the name a prefixed one, of a namespace that nobody declared.
    return at > 0 && (is_digit(c) || c == '.' || c == '-');
}

/// Bytes of the character of UTF-8 at the front, 0 if none stands there that XML can hold.
std::size_t utf8_character(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned int first = byte(0);
    if (first < 0x80) return first >= 0x20 || first == '\t' || first == '\n' || first == '\r';
    const std::size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < size) return 0;
    unsigned int code = first & (0x7Fu >> size);
    for (std::size_t i = 1; i < size; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
        code = code << 6 | (byte(i) & 0x3Fu);
    }
    if (size == 3 && (code < 0x800 || (code >= 0xD800 && code < 0xE000) || code >= 0xFFFE))
        return 0;
    if (size == 4 && (code < 0x10000 || code > 0x10FFFF)) return 0;
    return size;
}

bool is_xml_text(std::string_view text) {
    while (!text.empty()) {
        const std::size_t size = utf8_character(text);
        if (size == 0) return false;
        text.remove_prefix(size);
    }
    return true;
}

/// The kind that the text names before its first colon, ZV_UNSET if none.
zVariableType named_kind(std::string_view text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) return ZV_UNSET;
    for (const KindWord& known : kKindWords) {
        if (known.word == text.substr(0, colon)) return known.kind;
    }
    return ZV_UNSET;
}

/// Text that XML can hold, with what has a meaning there escaped. Line ends and tabs are written as
/// references: a reader turns bare ones into blanks.
void append_escaped(std::string& out, std::string_view text) {
    for (const char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\t':
                out += "&#9;";
                break;
            case '\n':
                out += "&#10;";
                break;
            case '\r':
                out += "&#13;";
                break;
            default:
                out += c;
        }
    }
}

void append_text(std::string& out, std::string_view text) {
    // A text that looks like another kind's value has to say that it is a text.
    if (is_xml_text(text) && named_kind(text) == ZV_UNSET) return append_escaped(out, text);
    out.append(kTextWord).append(":");
    for (const char& c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte >= 0x7F || c == '%') {
            out += '%';
            append_hex(out, byte);
        } else {
            append_escaped(out, std::string_view(&c, 1));
        }
    }
}

std::string text_from(std::string_view value) {
    std::string text;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const int byte = value[i] == '%' ? hex_byte(value.substr(i + 1)) : -1;
        text += byte < 0 ? value[i] : static_cast<char>(byte);
        if (byte >= 0) i += 2;
    }
    return text;
}

template <class Number>
void append_number(std::string& out, Number value) {
    char text[64];
    out.append(text, std::to_chars(text, text + sizeof text, value).ptr);
}

/// The shortest digits that read back as the same value; an infinity or a NaN as its bits.
template <class Real, class Bits>
void append_real(std::string& out, Real value) {
    if (std::isfinite(value)) return append_number(out, value);
    char text[32];
    out += '#';
    out.append(text, std::to_chars(text, text + sizeof text, std::bit_cast<Bits>(value), 16).ptr);
}

template <class Number, class... Base>
bool reads(std::string_view text, Number& value, Base... base) {
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value, base...);
    return result.ec == std::errc() && result.ptr == end;
}

template <class Real, class Bits>
bool reads_real(std::string_view text, Real& value) {
    if (text.empty() || text.front() != '#') return reads(text, value);
    Bits bits = 0;
    if (!reads(text.substr(1), bits, 16)) return false;
    value = std::bit_cast<Real>(bits);
    return true;
}

template <class Number>
bool set_number(zRecord& record, unsigned long long id, std::string_view text,
                void (zRecord::*set)(unsigned long long, Number, char)) {
    Number value = 0;
    if (!reads(text, value)) return false;
    (record.*set)(id, value, 0);
    return true;
}

bool set_bool(zRecord& record, unsigned long long id, std::string_view text) {
    if (text != "true" && text != "false") return false;
    record.SetBool(id, text == "true");
    return true;
}

/// Sets the value of a kind that the attribute names; false if `text` is no such value.
bool set_kind(zRecord& record, unsigned long long id, zVariableType kind, std::string_view text) {
    float float32 = 0;
    double float64 = 0;
    switch (kind) {
        case ZV_BOOL:
            return set_bool(record, id, text);
        case ZV_INT32:
            return set_number<int>(record, id, text, &zRecord::SetInt32);
        case ZV_UINT32:
            return set_number<unsigned int>(record, id, text, &zRecord::SetUInt32);
        case ZV_INT64:
            return set_number<long long>(record, id, text, &zRecord::SetInt64);
        case ZV_UINT64:
            return set_number<unsigned long long>(record, id, text, &zRecord::SetUInt64);
        case ZV_FLOAT:
            if (!reads_real<float, std::uint32_t>(text, float32)) return false;
            record.SetFloat(id, float32);
            return true;
        case ZV_DOUBLE:
            if (!reads_real<double, std::uint64_t>(text, float64)) return false;
            record.SetDouble(id, float64);
            return true;
        case ZV_STRING:
            record.SetString(id, text_from(text));
            return true;
        case ZV_UNSET:
            break;
    }
    return false;
}

}  // namespace

void append_xml_name(std::string& out, std::string_view name) {
    if (name.empty()) out += kEmptyName;
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (fits_name(name, i)) {
            out += name[i];
            continue;
        }
        out += "_x";
        append_hex(out, static_cast<unsigned char>(name[i]));
        out += '_';
    }
}

std::string name_from_xml(std::string_view name) {
    if (name == kEmptyName) return {};
    if (name.find("_x") == std::string_view::npos) return std::string(name);
    std::string out;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const std::string_view rest = name.substr(i);
        const bool escape = rest.size() >= 5 && rest.starts_with("_x") && rest[4] == '_';
        const int byte = escape ? hex_byte(rest.substr(2)) : -1;
        out += byte < 0 ? name[i] : static_cast<char>(byte);
        if (byte >= 0) i += 4;
    }
    return out;
}

std::string key_from_xml(std::string_view name) {
    std::string key = name_from_xml(name);
    return key.find('\0') == std::string::npos ? key : std::string(name);
}

void append_xml_key(std::string& out, unsigned long long id) {
    const char* key = zStringID::Default().Key(id);
    if (key != nullptr) return append_xml_name(out, key);
    char text[32];
    out += kIDPrefix;
    out.append(text, std::to_chars(text, text + sizeof text, id, 16).ptr);
}

std::optional<unsigned long long> id_from_xml(std::string_view name) {
    unsigned long long id = 0;
    if (!name.starts_with(kIDPrefix) || !reads(name.substr(kIDPrefix.size()), id, 16)) return {};
    return id;
}

void append_xml_value(std::string& out, const zVariable& variable) {
    if (variable.IsHeapBacked()) return append_text(out, variable.Text());
    for (const KindWord& known : kKindWords) {
        if (known.kind == variable.Kind()) out.append(known.word).append(":");
    }
    switch (variable.Kind()) {
        case ZV_BOOL:
            out += variable.AsBool(false) ? "true" : "false";
            break;
        case ZV_UINT32:
        case ZV_UINT64:
            append_number(out, variable.AsUInt64(0));
            break;
        case ZV_FLOAT:
            append_real<float, std::uint32_t>(out, variable.AsFloat(0));
            break;
        case ZV_DOUBLE:
            append_real<double, std::uint64_t>(out, variable.AsDouble(0));
            break;
        default:
            append_number(out, variable.AsInt64(0));
    }
}

void set_from_xml(zRecord& record, unsigned long long id, std::string_view value) {
    const zVariableType kind = named_kind(value);
    const std::size_t start = kind == ZV_UNSET ? 0 : value.find(':') + 1;
    // A word that is no value of the kind it names was not written by us: a text as it stands.
    if (!set_kind(record, id, kind, value.substr(start))) record.SetString(id, std::string(value));
}
