#include "spar/zDirectory.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <filesystem>
#include <memory>
#include <system_error>

#include "spar/zFileStream.h"

namespace fs = std::filesystem;

namespace {

int code_of(const std::error_code& error) {
    return error ? zFileStream::kErrorBase - error.value() : 0;
}

class FolderDirectory final : public zDirectory {
public:
    int Create(const char* path) override;
    int Remove(const char* path) override;
    int RemoveWithContent(const char* path) override;
    int List(const char* path, std::vector<std::string>& names) override;
};

int null_path() {
    return code_of(std::make_error_code(std::errc::invalid_argument));
}

int FolderDirectory::Create(const char* path) {
    if (path == nullptr) return null_path();
    std::error_code error;
    fs::create_directories(path, error);
    return code_of(error);
}

/// 0 if the path is a folder to work on, positive if nothing is there, else a code.
int look_at_folder(const char* path) {
    if (path == nullptr) return null_path();
    std::error_code error;
    const fs::file_status status = fs::symlink_status(path, error);
    if (status.type() == fs::file_type::not_found) return 1;
    if (status.type() == fs::file_type::none) return code_of(error);
    if (status.type() == fs::file_type::directory) return 0;
    return code_of(std::make_error_code(std::errc::not_a_directory));
}

int FolderDirectory::Remove(const char* path) {
    const int seen = look_at_folder(path);
    if (seen != 0) return seen > 0 ? 0 : seen;
    std::error_code error;
    fs::remove(path, error);
    return code_of(error);
}

int FolderDirectory::RemoveWithContent(const char* path) {
    const int seen = look_at_folder(path);
    if (seen != 0) return seen > 0 ? 0 : seen;
    std::error_code error;
    fs::remove_all(path, error);
    return code_of(error);
}

int FolderDirectory::List(const char* path, std::vector<std::string>& names) {
    names.clear();
    if (path == nullptr) return null_path();
    std::error_code error;
    fs::directory_iterator walk(path, error);
    for (; !error && walk != fs::directory_iterator(); walk.increment(error)) {
        names.push_back(walk->path().filename().string());
    }
    if (error) names.clear();
    std::sort(names.begin(), names.end());
    return code_of(error);
}

}  // namespace

zDirectory* zDirectory::Factory() {
    return new FolderDirectory;
}

bool zDirectory::Exists(const char* path) {
    return path != nullptr && zFileStream::IsFolder(path);
}

int zDirectory::ForEachEntry(const char* path, const std::function<void(const char*)>& function) {
    if (path == nullptr) return null_path();
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(path), ::closedir);
    if (!folder) return code_of(std::error_code(errno, std::generic_category()));
    const auto isFolderItself = [](const char* name) {
        return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
    };
    for (;;) {
        errno = 0;  // the end leaves it so
        const dirent* entry = ::readdir(folder.get());
        if (entry == nullptr) return code_of(std::error_code(errno, std::generic_category()));
        const bool isSure = entry->d_type == DT_REG || entry->d_type == DT_DIR;
        if (isSure && !isFolderItself(entry->d_name)) function(entry->d_name);
    }
}
