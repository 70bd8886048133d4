#include "tarn/movies/tnFiles.h"

#include "spar/jigIterator.h"
#include "tarn/movies/tnFormatsIterator.h"
#include "tarn/movies/tnXIMovieFile.h"

namespace {

constexpr const char* kInterfaceName = "tnXIMovieFile";

constexpr int kGeneral = -1;
constexpr int kNullArgument = -22;
constexpr int kNoInterface = -31;
constexpr int kNotLoaded = -1014;
constexpr int kNobodyToAsk = -1015;
constexpr int kNoSuchAddon = -1016;
constexpr int kNoMovie = -1017;
constexpr int kEmptyName = -1018;
constexpr int kNoSuchFormat = -1020;
constexpr int kNotThisFile = -1254;

jigManager* gMiJigManager = nullptr;

/// Calls `visit` with each add-on's interface until it answers false.
template <typename Visit>
void for_each_addon(Visit visit) {
    jigIterator walk(*gMiJigManager, kInterfaceName);
    for (walk.Init(); !walk.Done(); walk.Next()) {
        void* found = nullptr;
        if (walk.GetInterface(&found) != 0 || !found) continue;
        auto* file = static_cast<tnXIMovieFile*>(found);
        const bool goOn = visit(*file);
        file->Release();
        if (!goOn) return;
    }
}

}  // namespace

void tnFiles::LoadAddons(jigManager& manager) {
    gMiJigManager = &manager;
}

int tnFiles::LoadFile(const char* path, tnMovie** movie, const zRecord& options,
                      tnAppFunctions& functions) {
    if (!gMiJigManager) return kNotLoaded;
    int result = kNobodyToAsk;
    for_each_addon([&](tnXIMovieFile& file) {
        result = file.LoadFile(path, movie, options, functions);
        return result == kNotThisFile;
    });
    return result;
}

int tnFiles::GetMovieFileInterface(const std::string& name, tnXIMovieFile** out) {
    if (!out || name.empty()) return kNullArgument;
    int result = kNoSuchAddon;
    for_each_addon([&](tnXIMovieFile& file) {
        if (name != file.FormatName()) return true;
        file.AddRef();
        *out = &file;
        result = 0;
        return false;
    });
    return result;
}

bool tnFiles::IsOutputSupported(const std::string& name, const zRecord& output) {
    tnXIMovieFile* file = nullptr;
    if (GetMovieFileInterface(name, &file) != 0) return false;
    const bool supported = file->IsOutputSupported(output);
    file->Release();
    return supported;
}

int tnFiles::CreateMovie(tnMovie** movie, unsigned int formatID, tn_output output) {
    if (!gMiJigManager) return kNotLoaded;
    int result = kNoMovie;
    for_each_addon([&](tnXIMovieFile& file) {
        if (file.FormatID() != formatID || !file.SupportsOutput(output)) return true;
        // A failure is kept to itself: another add-on of the same id may do better.
        if (file.CreateMovie(movie) == 0) result = 0;
        return result != 0;
    });
    return result;
}

int tnFiles::CreateMovieWithName(tnMovie** movie, const std::string& name, tn_output output) {
    if (name.empty()) return kEmptyName;
    unsigned int id = 0;
    const int result = GetFormatID(name, &id);
    return result != 0 ? result : CreateMovie(movie, id, output);
}

int tnFiles::GetFormatID(const std::string& name, unsigned int* id) {
    if (!id || name.empty()) return kGeneral;
    *id = 0;
    for_each_addon([&](tnXIMovieFile& file) {
        if (name == file.FormatName()) *id = file.FormatID();
        return *id == 0;
    });
    return *id != 0 ? 0 : kNoSuchFormat;
}

int tnFiles::QueryInterface(const char* interfaceName, void** out) {
    jigIterator walk(*gMiJigManager, interfaceName);
    walk.Init();
    return walk.Done() ? kNoInterface : walk.GetInterface(out);
}

tnFormatsIterator* tnFiles::CreateFormatIterator() {
    return new tnFormatsIterator(new jigIterator(*gMiJigManager, kInterfaceName));
}
