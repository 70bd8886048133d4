#include "movieContainer.h"

#include <cctype>
#include <filesystem>
#include <fmt/format.h>

unsigned int ContainerOf(const std::string& path) {
    std::string ending = std::filesystem::path(path).extension().string();
    for (char& c : ending) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (ending == ".mov") return 'mov ';
    if (ending == ".mp4" || ending == ".m4v") return 'mp4 ';
    return 0;
}

std::string UnknownContainer(const std::string& path) {
    return fmt::format("'{}': unknown kind of file; end its name in .mov, .mp4 or .m4v", path);
}
