#pragma once

#include <string>

#include "spar/export.h"
#include "spar/zString.h"

/// A path as text: nothing here looks at the disk, and no link is followed.
class SPAR_API zFSPath {
public:
    /// Separators and names "." at the end are dropped, which leave the place the same. A null path
    /// is the empty one.
    explicit zFSPath(const char* path);
    explicit zFSPath(const zString& path);
    ~zFSPath() = default;

    /// Appends a name, or several with separators between. -22 for a null or empty name.
    int GoChild(const char* name);

    /// Goes to the folder that holds this: "a" goes to ".", "." to "..". -1 at the root and for the
    /// empty path, which stay.
    int GoParent();

    /// The last name of the path, the path itself at the root. Good until the path changes.
    const char* GetLeaf() const;

    /// What follows the last dot of the leaf, empty after a dot at its end; null without a dot, and
    /// for a dot that begins the leaf. Good until the path changes.
    const char* GetExtension() const;

    const zString& Path() const { return fPath; }
    const char* CString() const { return fPath.CString(); }

    /// Whether `name`, one name and not a path, holds characters that a file system forbids: the
    /// separator and the zero byte. With `portable` also what other systems forbid: control
    /// characters and \ : * ? " < > |.
    static bool NameHasRestrictedCharacters(const std::string& name, bool portable);

private:
    zString fPath;
};
