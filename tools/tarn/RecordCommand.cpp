#include "RecordCommand.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "CommandLine.h"
#include "JsonString.h"
#include "RecordReporter.h"
#include "Recorder.h"
#include "Say.h"
#include "StopSignal.h"
#include "codecQualities.h"
#include "parseSize.h"
#include "recordLimits.h"
#include "recordSummary.h"

namespace {

struct RecordArguments {
    RecordOptions options;
    std::string size;
    bool bitRateGiven = false;
    bool json = false;
};

/// An empty line, or which option says something of a track that there is not going to be.
std::string check_tracks(const RecordArguments& arguments) {
    const RecordOptions& options = arguments.options;
    if (options.audio == "none" && !options.audioInput.empty()) {
        return fmt::format("--audio-input '{}': --audio none takes no sound; take one of them out",
                           options.audioInput);
    }
    if (options.video != "none") return "";
    const std::pair<const char*, bool> given[] = {
        {"--size", !arguments.size.empty()},
        {"--quality", !options.quality.empty()},
        {"--bitrate", arguments.bitRateGiven},
        {"--key-frame-rate", options.keyFrameRate > 0},
    };
    for (const auto& [option, isGiven] : given) {
        if (!isGiven) continue;
        return fmt::format("{}: --video none takes no picture; take one of them out", option);
    }
    return "";
}

/// An empty line, or what is wrong with the quality or the bit rate for this encoder.
std::string check_quality(const RecordArguments& arguments) {
    const RecordOptions& options = arguments.options;
    const std::vector<std::string>* const names = QualitiesOf(options.video);
    if (names && arguments.bitRateGiven) {
        return fmt::format("--bitrate: {} goes by --quality; it has {}", options.video,
                           fmt::join(*names, ", "));
    }
    if (options.quality.empty()) return "";
    if (!names) {
        return fmt::format(
            "--quality '{}': {} goes by --bitrate; only ProRes and MJPEG have "
            "qualities",
            options.quality, options.video);
    }
    if (std::find(names->begin(), names->end(), options.quality) != names->end()) return "";
    return fmt::format("--quality '{}': {} has {}", options.quality, options.video,
                       fmt::join(*names, ", "));
}

std::string check_arguments(RecordArguments& arguments) {
    RecordOptions& options = arguments.options;
    // Whether a side must be even is the encoder's to say.
    if (!arguments.size.empty() &&
        !ParseSize(arguments.size, kSmallestSide, kLargestSide, options.width, options.height)) {
        return fmt::format("--size '{}': give it as WIDTHxHEIGHT, each from {} to {}",
                           arguments.size, kSmallestSide, kLargestSide);
    }
    const std::string wrong = check_tracks(arguments);
    return wrong.empty() ? check_quality(arguments) : wrong;
}

void print_summary(const RecordArguments& arguments, const Recorder& recorder, double elapsed,
                   bool stopped) {
    const RecordFigures& figures = recorder.Figures();
    const RecordOptions& options = arguments.options;
    std::error_code failed;
    const auto onDisk = static_cast<long long>(std::filesystem::file_size(options.output, failed));
    if (arguments.json) {
        Say(R"({{"event":"done","path":{},"seconds":{:.3f},"frames":{},"audioFrames":{},"videoBytes":{},)"
            R"("audioBytes":{},"fileBytes":{},"elapsed":{:.3f},"late":{:.3f},"stopped":{}}})"
            "\n",
            JsonString(options.output), figures.seconds.load(), figures.frames.load(),
            figures.audioFrames.load(), figures.videoBytes.load(), figures.audioBytes.load(),
            onDisk, elapsed, figures.lateSeconds.load(), stopped);
        return;
    }
    SayText(stdout, RecordSummary(options, figures, onDisk, elapsed, stopped));
}

int report_failure(const RecordArguments& arguments, const std::string& line) {
    return Complain(arguments.json, "tarn record", line);
}

int run_record(RecordArguments& arguments) {
    const std::string wrong = check_arguments(arguments);
    if (!wrong.empty()) return report_failure(arguments, wrong);
    const std::atomic<bool>& stop = WatchStopSignal();
    Recorder recorder(arguments.options);
    if (!recorder.Prepare()) return report_failure(arguments, recorder.Error());

    bool done = false;
    double elapsed = 0;
    {
        const RecordReporter reporter(recorder, arguments.json);
        done = recorder.Run(stop);
        elapsed = reporter.Elapsed();
    }
    if (!done) return report_failure(arguments, recorder.Error());
    print_summary(arguments, recorder, elapsed, stop && !recorder.CameToEnd());
    return 0;
}

}  // namespace

void AddRecordCommand(Command& program) {
    auto arguments = std::make_shared<RecordArguments>();
    RecordOptions& options = arguments->options;
    Command record = program.AddCommand("record", "Record a clip to a movie file");
    record.AddOption("INPUT", options.input, "any clip that FFmpeg reads").Required();
    record.AddOption("OUTPUT", options.output, "a .mov, .mp4 or .m4v file").Required();
    record.AddOption("--video", options.video, "encoder of the picture")
        .OneOf({"x264", "ProRes", "MJPEG", "Mpeg2", "Video Toolbox H.264", "none"})
        .ShowDefault();
    record.AddOption(
        "--quality", options.quality,
        fmt::format("of ProRes: {}; of MJPEG: {}", fmt::join(*QualitiesOf("ProRes"), ", "),
                    fmt::join(*QualitiesOf("MJPEG"), ", ")));
    record.AddOption("--bitrate", options.bitRate, "thousands of bits a second, for x264 and Mpeg2")
        .Between(1, kMostKilobits, "thousands of bits")
        .NoteGiven(arguments->bitRateGiven)
        .ShowDefault();
    record
        .AddOption("--key-frame-rate", options.keyFrameRate,
                   "frames from one key frame to the next")
        .Between(1, kLongestKeyInterval, "frames");
    record.AddOption("--audio", options.audio, "encoder of the sound")
        .OneOf({"pcm", "aac", "none"})
        .ShowDefault();
    record.AddOption("--audio-input", options.audioInput, "take the sound from this clip instead");
    record.AddOption("--size", arguments->size, "scale the picture, shown in the clip's shape")
        .TypeName("WIDTHxHEIGHT");
    record
        .AddOption("--moov-rate", options.moovRate,
                   "seconds between two states of the file that survive a crash")
        .Between(1, kLongestMoovRate, "seconds");
    record.AddOption("--limit", options.limit, "seconds to record")
        .Between(0.001, kLongestSeconds, "seconds");
    record.AddFlag("--live", options.live, "at the clip's own pace");
    record.AddJsonFlag(arguments->json);
    record.OnRun([arguments] { return run_record(*arguments); });
}
