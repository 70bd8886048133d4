#pragma once

#include <atomic>

/// Becomes true at the first Ctrl-C (or SIGTERM); the second one ends the process at once.
const std::atomic<bool>& WatchStopSignal();
