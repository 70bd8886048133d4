#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "ReplayRecording.h"

/// What is to be cut out of a recording.
struct ReplayCutWish {
    std::string output;  ///< a .mov, .mp4 or .m4v file
    long long in = 0;    ///< on the recording's timeline
    long long out = 0;   ///< exclusive
    bool exact = false;  ///< both ends to the frame, if need be by encoding anew
};

/// What came of it.
struct ReplayCutResult {
    long long from = 0;  ///< on the recording's timeline: where the first picture stands
    long long to = 0;    ///< where the last one ends
    long long frames = 0;
    std::size_t segments = 0;
    long long gaps = 0;    ///< microseconds that were not recorded and are left out
    bool encoded = false;  ///< anew; else every picture is as it was recorded
    bool stopped = false;  ///< by the caller: the movie ends early
};

/// Makes one movie of the stretch from `in` to `out`, while the recording may go on.
///
/// Pictures and sound are copied as they are: the movie begins at the last key frame up to `in`. To
/// the frame it begins only where that is a key frame, or with codecs of key frames alone; an exact
/// cut is encoded anew elsewhere. Gaps are closed. False with one line in `error`.
bool CutReplay(const ReplayRecording& recording, const ReplayCutWish& wish,
               const std::atomic<bool>& stop, const std::function<void(double)>& progress,
               ReplayCutResult& result, std::string& error);
