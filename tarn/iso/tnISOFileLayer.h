#pragma once

#include <string>

/// What a folder check asks of the file system. Tests put their own in its place.
class tnISOFileLayer {
public:
    virtual ~tnISOFileLayer();

    virtual bool IsFolder(const std::string& path);
    virtual long long SpaceAvailable(const std::string& path);

    /// The layer in use.
    static tnISOFileLayer& Current();
    /// Puts `layer` in place, the real one for null. It is not owned; checks under way stay with
    /// the one they asked last.
    static void Set(tnISOFileLayer* layer);
};
