#pragma once

#include <atomic>
#include <mutex>
#include <unordered_map>

#include "tarn/export.h"

class tnOutputStream;

/// Makes the tracks of one movie start together. All its streams share one.
///
/// Everything waits until there has been a buffer of each stream; with the next key frame of the
/// pictures the movie begins, on all tracks. A stream that has no others to wait for begins at
/// once, whatever its first buffer is.
class TARN_API tnOutputStreamSync {
public:
    /// Enters a stream of the movie. For every stream, before any buffer flows: a stream that is
    /// not entered is never counted, and the movie never starts.
    void AddStream(tnOutputStream* stream);

    /// Whether this stream's buffer, of `time` milliseconds, may go to its sink. Any thread; takes
    /// a lock only until the start is decided.
    bool CanSendFrame(tnOutputStream* stream, long long time, bool isKeyFrame);

private:
    void decide_start(long long time);

    std::mutex fMutex;
    // under fMutex
    std::unordered_map<tnOutputStream*, long long>
        fFirstTimes;  // milliseconds, -1 until it reports
    long long fReportedStreams = 0;
    // any thread
    std::atomic<long long> fSyncTime{0};
    std::atomic<bool> fSynced{false};
};
