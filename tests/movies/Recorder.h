#pragma once

#include <string>
#include <sys/types.h>

#include "tests/movies/MovieCheck.h"

/// Starts a process that records `clip` to `path` as WriteClipTo does, and that kills itself at its
/// `killAt`th call to the file: in the middle of it for a write, else before it.
pid_t StartDoomedRecorder(const std::string& path, const MediaClip& clip,
                          const WriteOptions& options, int killAt);

/// Starts a process that records `clip` to `path`, a sample every `pace` microseconds, and lets the
/// file's own thread make the checkpoints.
pid_t StartPacedRecorder(const std::string& path, const MediaClip& clip,
                         const WriteOptions& options, int pace);

/// True when the process was killed; false when it ended well. Any other end is a test's failure.
bool WaitForRecorder(pid_t recorder);
