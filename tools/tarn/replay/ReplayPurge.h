#pragma once

#include <functional>
#include <string>

#include "ReplayRecording.h"

/// What a purge has done.
struct ReplayPurged {
    std::size_t kept = 0;
    std::size_t removed = 0;
    long long bytes = 0;  ///< that are free again
};

/// Deletes all segments of `place` but those of the last `keep` microseconds, and waits for their
/// files to go, telling the part that has gone. A recording that is not closed is left alone unless
/// `force`: its recorder has the manifest open. False with one line in `error`.
bool PurgeReplay(const std::string& place, long long keep, bool force,
                 const std::function<void(double)>& progress, ReplayPurged& purged,
                 std::string& error);
