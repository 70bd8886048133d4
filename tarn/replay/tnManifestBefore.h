#pragma once

#include <string>

#include "tarn/export.h"
#include "tarn/replay/tnReplayManifest.h"

/// The list that a replay manifest held before it is written anew, in a file beside it.
///
/// A manifest that deletes segments begins anew in an empty file and lists again what stays: a kill
/// in between leaves no list at all, or one of some segments, of a recording whose movies all stand
/// there. Whoever lets a manifest delete keeps the list first and drops it when the new one is
/// whole. Readers of a recording that was cut off find it here; what was deleted meanwhile has no
/// file, and is passed over like any segment without one.
///
/// One thread at a time for a manifest. Every call may block as long as the disk does.
class TARN_API tnManifestBefore {
public:
    /// `manifest` is the manifest's path.
    explicit tnManifestBefore(const std::string& manifest);

    const std::string& Path() const { return fPath; }

    /// Keeps what the manifest lists now, instead of what was kept before. False where neither a
    /// link nor a copy can be made; nothing is kept then.
    bool Keep() const;

    /// Drops the list if `manifest` lists as many segments as `kept` again. Else it stays, and the
    /// answer is false.
    bool DropIfListed(tnReplayManifest& manifest, const tnReplayManifest::Segments& kept) const;

    /// Puts the list in the manifest's place. False, with nothing changed, where there is none or
    /// the folder takes no changes.
    bool BringBack() const;

private:
    const std::string fManifest;
    const std::string fPath;
};
