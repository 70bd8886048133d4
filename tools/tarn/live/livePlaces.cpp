#include "livePlaces.h"

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

std::string PathOf(const std::string& location) {
    return names_a_file(location) ? location.substr(kFile.size()) : location;
}
