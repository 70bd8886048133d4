#include "livePlaces.h"

#include <charconv>
#include <string_view>

namespace {

constexpr std::string_view kFile = "file://";

bool names_a_file(const std::string& location) {
    return location.compare(0, kFile.size(), kFile) == 0;
}

}  // namespace

bool IsAddress(const std::string& location) {
    return location.find("://") != std::string::npos && !names_a_file(location);
}

bool HasGoodPort(const std::string& location) {
    constexpr std::string_view kUdp = "udp://";
    if (location.compare(0, kUdp.size(), kUdp) != 0) return true;
    const std::string place = location.substr(0, location.find_first_of("/?", kUdp.size()));
    int port = 0;
    const char* const end = place.data() + place.size();
    const auto [stopped, failure] = std::from_chars(place.data() + place.rfind(':') + 1, end, port);
    return failure == std::errc() && stopped == end && port >= 1 && port <= 65535;
}

std::string PathOf(const std::string& location) {
    return names_a_file(location) ? location.substr(kFile.size()) : location;
}
