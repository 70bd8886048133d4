#include "spar/zFSPath.h"

#include <cstring>
#include <string_view>

static constexpr char kSeparator = '/';

/// Without the separators at its end, and without the names "." there, which lead nowhere; the root
/// keeps its separator.
static std::string_view trimmed(std::string_view path) {
    while (path.size() > 1 && (path.back() == kSeparator || path.ends_with("/."))) {
        path.remove_suffix(1);
    }
    return path;
}

zFSPath::zFSPath(const char* path) : fPath(std::string(trimmed(path == nullptr ? "" : path))) {}

zFSPath::zFSPath(const zString& path) : zFSPath(path.CString()) {}

int zFSPath::GoChild(const char* name) {
    if (name == nullptr || *name == 0) return -22;
    std::string path = fPath.AsString();
    if (!path.empty() && path.back() != kSeparator) path += kSeparator;
    std::string_view child(name);
    // A separator in front does not make the child a path of its own.
    while (!path.empty() && !child.empty() && child.front() == kSeparator) child.remove_prefix(1);
    path += child;
    fPath = std::string(trimmed(path));
    return 0;
}

int zFSPath::GoParent() {
    const std::string_view leaf = GetLeaf();
    if (leaf.empty() || leaf == "/") return -1;
    if (leaf == "." && fPath.Length() == 1) {
        fPath = "..";
        return 0;
    }
    if (leaf == "..") return GoChild("..");
    const std::string_view path = fPath.View();
    const std::string_view parent = path.substr(0, path.size() - leaf.size());
    fPath = parent.empty() ? std::string(".") : std::string(trimmed(parent));
    return 0;
}

const char* zFSPath::GetLeaf() const {
    const char* path = fPath.CString();
    const char* last = std::strrchr(path, kSeparator);
    return last == nullptr || last[1] == 0 ? path : last + 1;
}

const char* zFSPath::GetExtension() const {
    const char* leaf = GetLeaf();
    const char* dot = std::strrchr(leaf, '.');
    return dot == nullptr || dot == leaf || std::strcmp(leaf, "..") == 0 ? nullptr : dot + 1;
}

bool zFSPath::NameHasRestrictedCharacters(const std::string& name, bool portable) {
    for (const char c : name) {
        if (c == kSeparator || c == 0) return true;
        if (!portable) continue;
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) return true;
        if (std::string_view("\\:*?\"<>|").find(c) != std::string_view::npos) return true;
    }
    return false;
}
