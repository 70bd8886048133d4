#include "spar/jigManager.h"

#include <algorithm>
#include <dlfcn.h>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "spar/jigAddon.h"
#include "spar/jigElf.h"
#include "spar/trace.h"

namespace {

constexpr int kFailed = -1;
constexpr int kNullArgument = -22;
constexpr int kNoInterface = -31;

int skipped(const std::string& source, const std::string& why) {
    zTrace("jigManager: '{}': {}; skipped\n", source, why);
    return kFailed;
}

std::string file_problem(const std::string& path) {
    // A pipe would wait for its other end; regular files take no notice.
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) return "cannot be opened";
    struct stat status;
    std::string problem = "cannot be read";
    if (fstat(file, &status) == 0 && S_ISREG(status.st_mode)) {
        problem = jigElfProblem(static_cast<std::uint64_t>(status.st_size),
                                [file](std::uint64_t offset, void* to, std::size_t size) {
                                    return pread(file, to, size, static_cast<off_t>(offset)) ==
                                           static_cast<ssize_t>(size);
                                });
    }
    close(file);
    return problem;
}

std::string addon_problem(const jigAddon* addon) {
    if (addon == nullptr || addon->fMark != kJigMark) return "not an add-on";
    if (addon->fABI != kJigABI)
        return "built for add-on interface " + std::to_string(addon->fABI) + ", this host has " +
               std::to_string(kJigABI);
    if (addon->fInterface == nullptr || addon->fInterface[0] == 0 || addon->fCreate == nullptr)
        return "names no interface";
    return "";
}

/// The add-on's object if it answers its own interface, else null; nothing is thrown.
xIUnknown* make_object(const jigAddon& addon) noexcept {
    try {
        xIUnknown* object = addon.fCreate();
        if (object == nullptr) return nullptr;
        void* interface = nullptr;
        if (object->QueryInterface(addon.fInterface, &interface) == 0 && interface != nullptr) {
            object->Release();  // what the question added
            return object;
        }
        object->Release();
    } catch (...) {
    }
    return nullptr;
}

/// The loader's last error, without the path that it begins with.
std::string loader_error(const std::string& path) {
    std::string error = dlerror();
    if (error.rfind(path + ": ", 0) == 0) error.erase(0, path.size() + 2);
    return error;
}

/// Asks the library for its add-on; gives what is wrong with it, else nothing. What its code throws
/// ends here.
std::string entry_problem(void* library, const jigAddon*& addon) {
    using Entry = const jigAddon* (*)();
    const auto entry = reinterpret_cast<Entry>(dlsym(library, JIG_ENTRY_NAME));
    try {
        addon = entry != nullptr ? entry() : nullptr;
    } catch (const std::exception& error) {
        return std::string("fails while it is loaded: ") + error.what();
    } catch (...) {
        return "fails while it is loaded";
    }
    return addon != nullptr ? "" : "not an add-on";
}

}  // namespace

jigManager::jigManager() = default;

jigManager::~jigManager() {
    std::vector<Entry> entries;
    {
        zMutexLock held(fLock);
        entries.swap(fEntries);
    }
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) entry->fObject->Release();
}

int jigManager::LoadFolder(const std::string& folder) {
    namespace fs = std::filesystem;
    std::error_code error;
    std::vector<std::string> paths;
    for (fs::directory_iterator file(folder, error), end; !error && file != end;
         file.increment(error))
        if (file->path().extension() == ".so") paths.push_back(file->path().string());
    if (error) return skipped(folder, "the folder cannot be read: " + error.message());

    std::sort(paths.begin(), paths.end());
    const std::size_t before = count();
    for (const std::string& path : paths) LoadFile(path);
    return static_cast<int>(count() - before);
}

int jigManager::LoadFile(const std::string& path) {
    const std::string problem = file_problem(path);
    if (!problem.empty()) return skipped(path, problem);

    // A name without a slash would be looked for in the system's library folders.
    const std::string exact = path.find('/') == std::string::npos ? "./" + path : path;
    void* library = dlopen(exact.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return skipped(path, loader_error(exact));

    const jigAddon* addon = nullptr;
    const std::string why = entry_problem(library, addon);
    const int result = why.empty() ? add_from(*addon, path) : skipped(path, why);
    // Loaded code stays: dlclose here only gives back what the refused file took.
    if (result != 0) dlclose(library);
    return result;
}

int jigManager::Add(const jigAddon& addon) {
    return add_from(addon, "linked in");
}

int jigManager::add_from(const jigAddon& addon, const std::string& source) {
    const std::string problem = addon_problem(&addon);
    if (!problem.empty()) return skipped(source, problem);
    if (is_listed(addon)) return 0;
    // Made outside the lock: what an add-on does on its way up is its own, this manager included.
    xIUnknown* object = make_object(addon);
    if (object == nullptr)
        return skipped(source, std::string("gives no '") + addon.fInterface + "'");
    // Meanwhile another thread, or the add-on itself, may have listed it.
    if (!list_once(addon, object)) object->Release();
    return 0;
}

bool jigManager::list_once(const jigAddon& addon, xIUnknown* object) {
    zMutexLock held(fLock);
    const bool isListed = std::any_of(fEntries.begin(), fEntries.end(),
                                      [&](const Entry& entry) { return entry.fAddon == &addon; });
    if (!isListed) fEntries.push_back({addon.fInterface, object, &addon});
    return !isListed;
}

bool jigManager::is_listed(const jigAddon& addon) const {
    zMutexLock held(fLock);
    return std::any_of(fEntries.begin(), fEntries.end(),
                       [&](const Entry& entry) { return entry.fAddon == &addon; });
}

std::size_t jigManager::count() const {
    zMutexLock held(fLock);
    return fEntries.size();
}

std::size_t jigManager::find_from(std::size_t index, const std::string& interfaceName) const {
    zMutexLock held(fLock);
    while (index < fEntries.size() && fEntries[index].fInterface != interfaceName) ++index;
    return index < fEntries.size() ? index : kEnd;
}

int jigManager::get_interface(std::size_t index, void** out) const {
    if (out == nullptr) return kNullArgument;
    *out = nullptr;
    const char* name = nullptr;
    xIUnknown* object = nullptr;
    {
        zMutexLock held(fLock);
        if (index >= fEntries.size()) return kNoInterface;
        name = fEntries[index].fAddon->fInterface;
        object = fEntries[index].fObject;
    }
    return object->QueryInterface(name, out);
}
