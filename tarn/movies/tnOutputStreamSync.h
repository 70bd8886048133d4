#pragma once

#include <atomic>
#include <mutex>
#include <unordered_map>

#include "tarn/export.h"

class tnOutputStream;

/// Makes the tracks of one movie start together. All its streams share one.
///
/// Nothing passes until every stream has seen a buffer; the first video key frame from then on is
/// the start of the movie for all. A movie with one stream starts at its first buffer, key frame or
/// not.
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
