#include "ReplayOutput.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

#include "LiveSource.h"
#include "MovieOutput.h"

namespace {

constexpr double kSegmentSeconds = 2;
constexpr double kShortestSeconds = 0.2;
constexpr double kLongestSeconds = 600;

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
    const double length = segment_seconds(output);
    if (!(length >= kShortestSeconds && length <= kLongestSeconds)) {
        error = fmt::format("output '{}': segment_seconds goes from {} to {}", output.name,
                            kShortestSeconds, kLongestSeconds);
        return false;
    }
    const double kept = output.record.AsDouble("keep_seconds", 0);
    if (kept != 0 && !(kept >= length)) {
        error = fmt::format("output '{}': keep_seconds is at least segment_seconds ({}), or 0",
                            output.name, length);
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
