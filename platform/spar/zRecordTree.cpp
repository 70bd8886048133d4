#include <algorithm>
#include <fmt/format.h>
#include <memory>

#include "spar/trace.h"
#include "spar/zRecord.h"
#include "spar/zStringID.h"

// Children, and the record as text.

static constexpr unsigned long long kTagID = 'xTag';

void zRecord::AddChild(zRecord* child, int position) {
    std::unique_ptr<zRecord> owned(child);  // ours also if the list cannot grow
    const bool inside = position >= 0 && static_cast<std::size_t>(position) < fChildren.size();
    fChildren.insert(inside ? fChildren.begin() + position : fChildren.end(), child);
    owned.release();
}

void zRecord::RemoveChildPtr(zRecord* child) {
    const auto found = std::find(fChildren.begin(), fChildren.end(), child);
    if (found != fChildren.end()) fChildren.erase(found);
}

void zRecord::ForEachChild(const std::function<bool(zRecord*)>& function) const {
    for (std::size_t i = 0; i < fChildren.size(); ++i) {
        if (fChildren[i] != nullptr && !function(fChildren[i])) return;
    }
}

static bool equal_no_case(std::string_view left, std::string_view right) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [&](char a, char b) { return lower(a) == lower(b); });
}

static bool matches(std::string_view text, std::string_view value, z_match_method method) {
    switch (method) {
        case Z_MATCH_PREFIX:
            return text.starts_with(value);
        case Z_MATCH_SUFFIX:
            return text.ends_with(value);
        case Z_MATCH_CONTAINS:
            return text.find(value) != std::string_view::npos;
        case Z_MATCH_EXACT:
            return text == value;
        case Z_MATCH_EXACT_NO_CASE:
            return equal_no_case(text, value);
    }
    return false;
}

zRecord* zRecord::FindChildByStrVariable(unsigned long long id, const char* value, bool allLevels,
                                         unsigned int maxDepth, z_match_method method) const {
    if (value == nullptr || maxDepth == 0) return nullptr;
    for (zRecord* child : fChildren) {
        if (child == nullptr) continue;
        const zVariable* variable = child->FindVariable(id);
        if (variable != nullptr && variable->IsHeapBacked() &&
            matches(variable->Text(), value, method)) {
            return child;
        }
        if (!allLevels) continue;
        zRecord* below = child->FindChildByStrVariable(id, value, true, maxDepth - 1, method);
        if (below != nullptr) return below;
    }
    return nullptr;
}

static bool is_printable(unsigned char c) {
    return c >= 0x20 && c < 0x7f;
}

/// On one line whatever it holds.
static std::string escaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') out += '\\';
        if (byte < 0x20 || byte == 0x7f) {
            out += fmt::format("\\x{:02x}", byte);
        } else {
            out += c;
        }
    }
    return out;
}

/// The key, else the four characters of a code, else the number.
static std::string name_of(unsigned long long id) {
    const char* key = zStringID::Default().Key(id);
    if (key != nullptr) return escaped(key);
    std::string code;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const auto c = static_cast<unsigned char>(id >> shift);
        if (!is_printable(c) || id >> 32 != 0) return fmt::format("{:#x}", id);
        code += static_cast<char>(c);
    }
    return fmt::format("'{}'", code);
}

static const char* word_of(zVariableType kind) {
    switch (kind) {
        case ZV_BOOL:
            return "bool";
        case ZV_INT32:
            return "int32";
        case ZV_UINT32:
            return "uint32";
        case ZV_INT64:
            return "int64";
        case ZV_UINT64:
            return "uint64";
        case ZV_FLOAT:
            return "float";
        case ZV_DOUBLE:
            return "double";
        case ZV_UNSET:
        case ZV_STRING:
            break;
    }
    return "string";
}

void zRecord::describe(std::string& text, int indent) const {
    const std::string margin(static_cast<std::size_t>(std::max(indent, 0)) * 4, ' ');
    text += fmt::format("{}{} {{\n", margin, escaped(AsString(kTagID, "record")));
    ForEachVariable([&](const zVariable& variable) {
        if (variable.ID() == kTagID && variable.IsHeapBacked()) return true;
        text += fmt::format("{}    {} = ", margin, name_of(variable.ID()));
        text += variable.IsHeapBacked()
                    ? fmt::format("\"{}\"", escaped(variable.Text()))
                    : fmt::format("{} ({})", variable.AsString(""), word_of(variable.Kind()));
        text += '\n';
        return true;
    });
    for (const zRecord* child : fChildren) {
        if (child != nullptr) child->describe(text, indent + 1);
    }
    text += margin + "}\n";
}

std::string zRecord::Description(int indent) const {
    std::string text;
    describe(text, indent);
    return text;
}

void zRecord::Print(int indent, int /*reserved*/) const {
    if (zTraceManager::Default() != nullptr) zTrace("{}", Description(indent));
}
