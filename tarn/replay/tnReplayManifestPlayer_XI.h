#pragma once

/// What a manifest tells the player that the host has registered with it.
///
/// Both are called on the thread that causes them.
class tnReplayManifestPlayer_XI {
public:
    /// The manifest goes away. Called under the manifest's lock and, at the last ReleaseManifest,
    /// under the registry's: the player only drops its pointer. To wait here for another thread
    /// that asks for a manifest, or gives one back, is a deadlock.
    virtual void OnManifestClosing() = 0;
    /// Segments are about to be deleted from a recording that has ended. Called without a lock: the
    /// player may call the manifest, to give back what it does not need any more.
    virtual void OnSegmentsDeleting() = 0;

protected:
    ~tnReplayManifestPlayer_XI() = default;
};
