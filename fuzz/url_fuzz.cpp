#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "spar/zString.h"
#include "spar/zURLString.h"

// A failure changes nothing; a success gives parts that make sense and parse again.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string url(reinterpret_cast<const char*>(data), size);
    zString scheme("before"), host("before"), path("before"), user("before"), password("before");
    int port = -7;
    if (zURLString::Get(url.c_str(), &scheme, &host, &path, &port, &user, &password) != 0) {
        const bool same = scheme == "before" && host == "before" && path == "before" &&
                          user == "before" && password == "before" && port == -7;
        if (!same) std::abort();
        return 0;
    }
    if (scheme.IsEmpty() || port < 0 || port > 65535) std::abort();
    const bool bracketed = host.AsString().find(':') != std::string::npos;
    std::string plain = host.AsString();
    if (bracketed) plain.insert(0, 1, '[').push_back(']');
    const std::string again =
        scheme.AsString() + "://" + plain + ":" + std::to_string(port) + path.AsString();
    zString host2, path2;
    int port2 = 0;
    if (zURLString::Get(again.c_str(), nullptr, &host2, &path2, &port2, nullptr, nullptr) != 0) {
        std::abort();
    }
    if (!(host2 == host) || !(path2 == path) || port2 != port) std::abort();
    return 0;
}
