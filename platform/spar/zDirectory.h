#pragma once

#include <functional>
#include <string>
#include <vector>

#include "spar/export.h"

/// Folders of the disk. Results are 0 or the codes of zFileStream. Without state: any thread.
class SPAR_API zDirectory {
public:
    virtual ~zDirectory() = default;

    /// The caller owns it.
    static zDirectory* Factory();

    /// Whether a folder stands at the path.
    static bool Exists(const char* path);

    /// Calls `function` with the name of each file and folder in the folder, in no order. Links,
    /// which may lead nowhere, are left out, and whatever the file system does not say the kind of:
    /// a name that comes is there, of one that does not come nothing is said. A walk that fails
    /// underway gives the code of that, behind the names that came before.
    static int ForEachEntry(const char* path, const std::function<void(const char*)>& function);

    /// Makes the folder, and those above it that are missing. 0 if it stands already.
    virtual int Create(const char* path) = 0;

    /// Removes an empty folder. 0 if it is gone, also if it was not there.
    virtual int Remove(const char* path) = 0;

    /// Removes the folder with all that is in it; links are removed, never followed. 0 if it is
    /// gone, also if it was not there. After a failure part of the content may be gone.
    virtual int RemoveWithContent(const char* path) = 0;

    /// The names in the folder, sorted by bytes, without "." and "..". `names` is emptied first.
    virtual int List(const char* path, std::vector<std::string>& names) = 0;
};
