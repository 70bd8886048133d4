#pragma once

#include "spar/zList.h"
#include "spar/zString.h"
#include "spar/zThreadMain.h"

/// Removes the files of deleted segments, on a thread that nobody waits for. Made by `new`: Main
/// deletes the object.
class DeleteReplayFilesThread : public zThreadMain {
public:
    /// Takes `paths`, which Main frees.
    explicit DeleteReplayFilesThread(zList<zString>* paths);
    ~DeleteReplayFilesThread() override;

    /// Removes the files in order. A file that cannot be removed stays; always 0.
    int Main(int argumentCount, const char** arguments) override;

private:
    zList<zString>* fPaths;
};
