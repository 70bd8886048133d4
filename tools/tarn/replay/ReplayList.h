#pragma once

#include <string>
#include <vector>

#include "ReplayRecording.h"

/// A stretch of the timeline that no segment covers.
struct ReplayGap {
    long long start = 0;
    long long stop = 0;
};

/// The gaps between a recording's segments. Times of whole microseconds may miss each other by one.
std::vector<ReplayGap> GapsOf(const ReplayRecording& recording);

/// The timeline in `width` cells: '#' recorded, '+' in part, '.' not at all.
std::string ReplayTimeline(const ReplayRecording& recording, int width);

/// The recording as people read it, lines with their ends.
std::string TextOfReplay(const ReplayRecording& recording);

/// The same as one JSON object.
std::string JsonOfReplay(const ReplayRecording& recording);

/// One segment as a JSON object.
std::string JsonOfPiece(const ReplayPiece& piece);
