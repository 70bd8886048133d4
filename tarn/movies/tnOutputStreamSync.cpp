#include "tarn/movies/tnOutputStreamSync.h"

#include <algorithm>

#include "spar/trace.h"

namespace {

constexpr long long kNotReported = -1;

}  // namespace

void tnOutputStreamSync::AddStream(tnOutputStream* stream) {
    const std::lock_guard<std::mutex> lock(fMutex);
    fFirstTimes[stream] = kNotReported;
}

bool tnOutputStreamSync::CanSendFrame(tnOutputStream* stream, long long time, bool isKeyFrame) {
    if (fSynced) return fSyncTime <= time;

    const std::lock_guard<std::mutex> lock(fMutex);
    // A stream that nobody entered gets a time of 0 here and is never counted: it keeps the movie
    // from starting, which is how a forgotten registration shows.
    long long& first = fFirstTimes[stream];
    if (first == kNotReported) {
        ++fReportedStreams;
        first = time;
    }
    const bool allReported = fReportedStreams == static_cast<long long>(fFirstTimes.size());
    if (!fSynced && allReported && (isKeyFrame || fReportedStreams == 1)) decide_start(time);
    return fSynced;
}

void tnOutputStreamSync::decide_start(long long time) {
    // In this order: a reader between the two compares with the old time, which is accepted.
    fSynced.exchange(true);
    fSyncTime.exchange(time);
    long long earliest = time;
    long long latest = time;
    for (const auto& [stream, first] : fFirstTimes) {
        earliest = std::min(earliest, first);
        latest = std::max(latest, first);
    }
    const long long apart = latest - earliest;
    zTrace("Stream Sync: {}ms {:1.2f}s\n", apart, static_cast<double>(apart) / 1000.0);
}
