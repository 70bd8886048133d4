#include "spar/zURLString.h"

#include <algorithm>
#include <charconv>
#include <string>
#include <string_view>

#include "spar/zString.h"

namespace {

struct Scheme {
    std::string_view name;
    int port;
};

constexpr Scheme kSchemes[] = {
    {"ftp", 21},    {"ftps", 990},  {"sftp", 22},  {"ssh", 22},    {"http", 80},
    {"https", 443}, {"ws", 80},     {"wss", 443},  {"rtsp", 554},  {"rtsps", 322},
    {"rtspu", 554}, {"rtmp", 1935}, {"rtmpt", 80}, {"rtmps", 443}, {"mms", 1755},
    {"mmsh", 80},   {"smb", 445},   {"nfs", 2049}, {"telnet", 23},
};

struct Parts {
    std::string scheme;
    std::string user;
    std::string password;
    std::string_view host;
    std::string_view path;
    int port = 0;
};

bool is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

int hex_value(char c) {
    if (is_digit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

/// Resolves %HH; what is no escape stays as it stands.
std::string unescaped(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool escape = text[i] == '%' && i + 2 < text.size() && hex_value(text[i + 1]) >= 0 &&
                            hex_value(text[i + 2]) >= 0;
        if (!escape) {
            out += text[i];
            continue;
        }
        out += static_cast<char>(hex_value(text[i + 1]) * 16 + hex_value(text[i + 2]));
        i += 2;
    }
    return out;
}

/// Takes "scheme://" off the front. A location like host:8554/path has none, and fails here.
bool take_scheme(std::string_view& rest, std::string& scheme) {
    const std::size_t end = rest.find("://");
    if (end == std::string_view::npos || end == 0 || !is_letter(rest.front())) return false;
    for (const char c : rest.substr(0, end)) {
        if (!is_letter(c) && !is_digit(c) && c != '+' && c != '-' && c != '.') return false;
        scheme += c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    }
    rest.remove_prefix(end + 3);
    return true;
}

int customary_port(std::string_view scheme) {
    const auto* found = std::find_if(std::begin(kSchemes), std::end(kSchemes),
                                     [&](const Scheme& known) { return known.name == scheme; });
    return found == std::end(kSchemes) ? 0 : found->port;
}

void take_user(std::string_view& authority, Parts& parts) {
    const std::size_t at = authority.rfind('@');  // passwords are often given with a bare @ in them
    if (at == std::string_view::npos) return;
    const std::string_view login = authority.substr(0, at);
    const std::size_t colon = login.find(':');
    parts.user = unescaped(login.substr(0, colon));
    if (colon != std::string_view::npos) parts.password = unescaped(login.substr(colon + 1));
    authority.remove_prefix(at + 1);
}

/// An empty port, as in "host:/path", is no port.
bool read_port(std::string_view text, int& port) {
    if (text.empty()) return true;
    if (!std::all_of(text.begin(), text.end(), is_digit)) return false;
    int value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec != std::errc() || value > 65535) return false;
    port = value;
    return true;
}

bool is_host_character(char c) {
    return static_cast<unsigned char>(c) > 0x20 && c != 0x7f &&
           std::string_view("\"<>\\^`{|}[]@:").find(c) == std::string_view::npos;
}

bool take_host(std::string_view& authority, std::string_view& host) {
    if (!authority.empty() && authority.front() == '[') {
        const std::size_t end = authority.find(']');
        if (end == std::string_view::npos || end == 1) return false;
        host = authority.substr(1, end - 1);
        authority.remove_prefix(end + 1);
        const auto belongs = [](char c) {
            return hex_value(c) >= 0 || c == ':' || c == '.' || c == '%' || is_letter(c) ||
                   is_digit(c);
        };
        return std::all_of(host.begin(), host.end(), belongs);
    }
    host = authority.substr(0, authority.find(':'));
    authority.remove_prefix(host.size());
    return std::all_of(host.begin(), host.end(), is_host_character);
}

bool parse(std::string_view url, Parts& parts) {
    if (!take_scheme(url, parts.scheme)) return false;
    std::string_view authority = url.substr(0, url.find_first_of("/?#"));
    parts.path = url.substr(authority.size());
    take_user(authority, parts);
    if (!take_host(authority, parts.host)) return false;
    if (parts.host.empty() && parts.scheme != "file") return false;
    parts.port = customary_port(parts.scheme);
    if (authority.empty()) return true;
    return authority.front() == ':' && read_port(authority.substr(1), parts.port);
}

void give(zString* out, std::string_view text) {
    if (out != nullptr) *out = std::string(text);
}

}  // namespace

int zURLString::Get(const char* url, zString* scheme, zString* host, zString* path, int* port,
                    zString* user, zString* password) {
    if (url == nullptr || *url == 0) return -22;
    const std::string text(url);  // `url` may be what one of the strings holds
    Parts parts;
    if (!parse(text, parts)) return -1;
    give(scheme, parts.scheme);
    give(host, parts.host);
    give(path, parts.path);
    give(user, parts.user);
    give(password, parts.password);
    if (port != nullptr) *port = parts.port;
    return 0;
}
