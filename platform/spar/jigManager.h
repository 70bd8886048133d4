#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "spar/export.h"
#include "spar/zMutex.h"

class xIUnknown;
struct jigAddon;

/// The host's add-ons, in the order in which they were loaded or added.
///
/// One object of each add-on is made when it is loaded and kept until the manager goes; iterators
/// hand out references to it. Code that was loaded stays loaded until the process ends: others may
/// still hold objects and names of it. Any thread may call; iterators must be gone before the
/// manager.
class SPAR_API jigManager {
public:
    jigManager();
    ~jigManager();
    jigManager(const jigManager&) = delete;
    jigManager& operator=(const jigManager&) = delete;

    /// Loads every "*.so" of `folder`, in the order of their names, and gives the number of add-ons
    /// that this has brought; -1 when the folder cannot be read. What is not an add-on of this
    /// version is skipped with a trace line.
    int LoadFolder(const std::string& folder);

    /// Loads one file: 0, or -1 with a trace line that says why not. A file that is loaded already
    /// counts as loaded and is not listed twice.
    int LoadFile(const std::string& path);

    /// Lists an add-on that is linked into the program: 0, or -1 with a trace line. `addon` lives
    /// as long as the program.
    int Add(const jigAddon& addon);

private:
    friend class jigIterator;

    static constexpr std::size_t kEnd = static_cast<std::size_t>(-1);

    struct Entry {
        std::string fInterface;
        xIUnknown* fObject;
        const jigAddon* fAddon;
    };

    int add_from(const jigAddon& addon, const std::string& source);
    bool is_listed(const jigAddon& addon) const SPAR_EXCLUDES(fLock);
    /// Lists the object, which the manager then owns; false when the add-on is listed already.
    bool list_once(const jigAddon& addon, xIUnknown* object) SPAR_EXCLUDES(fLock);
    /// The first entry from `index` on with that interface, or kEnd.
    std::size_t find_from(std::size_t index, const std::string& interfaceName) const
        SPAR_EXCLUDES(fLock);
    int get_interface(std::size_t index, void** out) const SPAR_EXCLUDES(fLock);
    std::size_t count() const SPAR_EXCLUDES(fLock);

    mutable zMutex fLock;
    std::vector<Entry> fEntries SPAR_GUARDED_BY(fLock);  // only ever grows, so an index stays good
};
