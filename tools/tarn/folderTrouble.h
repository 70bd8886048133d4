#pragma once

#include <filesystem>
#include <string>

/// Why nothing can be written into the folder, as far as its name shows, and what to do; empty when
/// it is there. An empty path is the folder that the program runs in.
std::string FolderTrouble(const std::filesystem::path& folder);
