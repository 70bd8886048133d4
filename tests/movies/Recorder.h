#pragma once

#include <atomic>
#include <string>
#include <sys/types.h>

#include "tests/movies/MovieCheck.h"

/// What a recorder in another process has done so far: memory of both, which outlives its end.
class RecorderProgress {
public:
    static constexpr int kMostSamples = 4096;
    struct Shared {
        std::atomic<int> promised;          // samples of the clip that a checkpoint has shown
        std::atomic<int> written;           // samples of the clip that WriteSample took
        long long writtenAt[kMostSamples];  // microseconds of zTime::MicroNow
    };

    RecorderProgress();
    ~RecorderProgress();
    RecorderProgress(const RecorderProgress&) = delete;
    RecorderProgress& operator=(const RecorderProgress&) = delete;
    Shared* operator->() const { return fShared; }

private:
    Shared* const fShared;
};

/// Starts a process that records `clip` to `path` as WriteClipTo does, and that kills itself at its
/// `killAt`th call to the file: in the middle of it for a write, else before it.
pid_t StartDoomedRecorder(const std::string& path, const MediaClip& clip,
                          const WriteOptions& options, int killAt, RecorderProgress& progress);

/// Starts a process that records `clip` to `path`, a sample every `pace` microseconds, and lets the
/// file's own thread make the checkpoints.
pid_t StartPacedRecorder(const std::string& path, const MediaClip& clip,
                         const WriteOptions& options, int pace, RecorderProgress& progress);

/// True when the process was killed; false when it ended well. Any other end is a test's failure.
bool WaitForRecorder(pid_t recorder);
