#pragma once

#include <vector>

#include "ReplayCut.h"
#include "SegmentFile.h"

/// Makes the movie of `wish` by decoding the segments and encoding them anew as H.264 and AAC: both
/// ends are exact to the frame. See CutReplay.
bool EncodeReplay(const std::vector<SegmentFile>& files, const ReplayCutWish& wish,
                  const std::atomic<bool>& stop, const std::function<void(double)>& progress,
                  ReplayCutResult& result, std::string& error);
