#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "ReplayRecording.h"

/// What happens to a recording that is being watched.
struct ReplayNews {
    enum class Kind { kAdded, kRemoved, kClosed };
    Kind kind = Kind::kAdded;
    ReplayPiece piece;  ///< of the first two
};

/// Follows a recording that another process makes: tells what it lists now and then each change as
/// its manifest is flushed, until it is closed, `stop`, or nobody reads standard output any more.
/// It need not have begun. False with one line in `error`.
bool WatchReplay(const std::string& place, const std::atomic<bool>& stop,
                 const std::function<void(const ReplayNews&)>& tell, std::string& error);
