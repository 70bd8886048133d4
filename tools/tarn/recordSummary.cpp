#include "recordSummary.h"

#include <fmt/format.h>

#include "Recorder.h"
#include "TextUnits.h"

namespace {

// Of a recording without pictures, which waits for its pace between blocks of about that length.
constexpr double kBlockSeconds = 0.04;

std::string what_was_recorded(const RecordOptions& options, const RecordFigures& figures) {
    const std::string sound = (figures.audioFrames > 0 ? options.audio : "no") + " audio";
    if (options.video == "none") return sound;
    return fmt::format("{} video ({} {}) and {}", options.video, figures.frames.load(),
                       figures.frames == 1 ? "frame" : "frames", sound);
}

// Less than a frame is how late a sleep ends, and none of the encoder's doing.
std::string lateness(const RecordFigures& figures) {
    const double frame =
        figures.frames > 0 ? figures.seconds / static_cast<double>(figures.frames) : kBlockSeconds;
    if (figures.lateSeconds < frame) return "";
    return fmt::format("the encoder fell behind the clip's pace by up to {:.0f} ms\n",
                       figures.lateSeconds * 1000);
}

}  // namespace

std::string RecordSummary(const RecordOptions& options, const RecordFigures& figures,
                          long long bytes, double elapsed, bool stopped) {
    if (stopped && figures.frames == 0 && figures.audioFrames == 0) {
        return fmt::format("{}: stopped before anything was recorded\n", options.output);
    }
    return fmt::format("{}: {} of {}, {}, written in {:.1f} s{}\n", options.output,
                       TextOfSeconds(figures.seconds), what_was_recorded(options, figures),
                       TextOfBytes(bytes), elapsed, stopped ? "; stopped on request" : "") +
           (options.live ? lateness(figures) : "");
}
