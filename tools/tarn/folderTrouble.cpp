#include "folderTrouble.h"

#include <fmt/format.h>

std::string FolderTrouble(const std::filesystem::path& folder) {
    if (folder.empty()) return "";
    std::error_code failed;
    const std::filesystem::file_status found = std::filesystem::status(folder, failed);
    if (found.type() == std::filesystem::file_type::directory) return "";
    if (found.type() == std::filesystem::file_type::none) {
        return fmt::format("folder '{}': {}; check its path and its permissions", folder.string(),
                           failed.message());
    }
    return fmt::format("there is no folder '{}'; make it first", folder.string());
}
