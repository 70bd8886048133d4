#include "ReplayOutput.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

#include "../ElementValues.h"
#include "LiveSource.h"
#include "MovieOutput.h"

namespace {

constexpr double kSegmentSeconds = 2;
constexpr double kShortestSeconds = 0.2;
constexpr double kLongestSeconds = 600;
constexpr double kLongestKept = 1e9;

double segment_seconds(const ShowOutput& output) {
    return output.record.AsDouble("segment_seconds", kSegmentSeconds);
}

/// What the add-on of replay recordings is asked for.
ShowOutput as_movie(const ShowOutput& output) {
    ShowOutput movie = output;
    movie.format = "Replay";
    return movie;
}

}  // namespace

std::unique_ptr<LiveOutput> MakeReplayOutput(const ShowOutput& output, LiveSource& source,
                                             std::string& error) {
    ShowOutput movie = as_movie(output);
    // Segments end at key frames, so these come as often as segments, unless the track says
    // otherwise. An encoder is shared with outputs that ask for the same.
    const double frames = source.FramesPerSecond() * segment_seconds(output);
    for (tnMediaRecord& track : movie.tracks) {
        const bool isSound = track.fType.AsInt32(0) != TN_MEDIA_VIDEO;
        if (isSound || track.ExistsKey("key_frame_rate")) continue;
        track.SetInt32("key_frame_rate", std::max(1, static_cast<int>(std::lround(frames))));
    }
    return MakeMovieOutput(movie, source, error);
}

bool CheckReplayOutput(const ShowOutput& output, const Show& show, std::string& error) {
    const std::string where = fmt::format("output '{}'", output.name);
    double length = kSegmentSeconds;
    double kept = 0;
    if (!ReadNumber(output.record, "segment_seconds", kShortestSeconds, kLongestSeconds, length,
                    where, error) ||
        !ReadNumber(output.record, "keep_seconds", 0, kLongestKept, kept, where, error)) {
        return false;
    }
    if (kept != 0 && kept < length) {
        error = fmt::format(
            "{}: keep_seconds=\"{}\" is less than a segment; set it to segment_seconds ({}) or "
            "more, or to 0 to keep everything",
            where, kept, length);
        return false;
    }
    if (!output.Track(TN_MEDIA_VIDEO)) {
        error = fmt::format("output '{}': a replay needs a <video> track", output.name);
        return false;
    }
    // A folder that holds a recording is the add-on's to refuse: an output that is switched on
    // again goes on in a folder beside its first.
    return CheckMovieOutput(as_movie(output), show, error);
}
