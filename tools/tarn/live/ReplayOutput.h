#pragma once

#include <memory>
#include <string>

#include "LiveOutput.h"

/// A replay recording: a folder of segments and their manifest. "output_url" of the output is the
/// folder, "segment_seconds" (2) how long a segment is at least, "keep_seconds" how much is kept
/// while it records (everything without it). See LiveOutputMaker.
std::unique_ptr<LiveOutput> MakeReplayOutput(const ShowOutput& output, LiveSource& source,
                                             std::string& error);

/// Whether the folder can be recorded into and the numbers make sense. See LiveOutputCheck.
bool CheckReplayOutput(const ShowOutput& output, const Show& show, std::string& error);
