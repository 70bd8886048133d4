#include "SyncCommand.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <string>

#include "spar/zTime.h"

#include "../ClipAudio.h"
#include "../ClipVideo.h"
#include "../CommandLine.h"
#include "../JsonString.h"
#include "../ProgressLine.h"
#include "../RecordReporter.h"
#include "../Recorder.h"
#include "../Say.h"
#include "../StopSignal.h"
#include "../SvgDrawing.h"
#include "../TextUnits.h"
#include "../parseRate.h"
#include "../parseSize.h"
#include "SyncFigures.h"
#include "SyncMeter.h"
#include "SyncPlot.h"
#include "SyncSignal.h"

namespace {

constexpr long long kViewUs = 200'000;
constexpr int kLargestSignalSide = 8192;

struct SignalArguments {
    SignalOptions signal;
    RecordOptions record;
    std::string size = "1280x720";
    std::string rate = "60";
    bool json = false;
};

/// Empty, or what is wrong with the arguments.
std::string take_texts(SignalArguments& arguments) {
    SignalOptions& signal = arguments.signal;
    const bool isSize = ParseSize(arguments.size, kSmallestSignalSide, kLargestSignalSide,
                                  signal.width, signal.height);
    if (!isSize || signal.width % 2 != 0 || signal.height % 2 != 0) {
        return fmt::format("--size '{}': give it as WIDTHxHEIGHT, both even, from {} to {}",
                           arguments.size, kSmallestSignalSide, kLargestSignalSide);
    }
    if (!ParseRate(arguments.rate, signal.rate)) {
        return fmt::format("--rate '{}': not a rate; write 25, 29.97 or 60000/1001",
                           arguments.rate);
    }
    return {};
}

void print_signal(const SignalArguments& arguments, const Recorder& recorder, bool stopped) {
    SignalOptions made = arguments.signal;
    made.seconds = std::min<double>(made.seconds, recorder.Figures().seconds);
    const auto pairs = SignalPairs(made);
    if (!arguments.json) {
        Say("{}: {} of {} video and {} sound, {} pairs of flash and tone{}\n",
            arguments.record.output, TextOfSeconds(recorder.Figures().seconds),
            arguments.record.video, arguments.record.audio, pairs.size(),
            stopped ? "; stopped before its end" : "");
        return;
    }
    Say(R"({{"event":"done","path":{},"seconds":{:.3f},"stopped":{},"pairs":[)",
        JsonString(arguments.record.output), recorder.Figures().seconds.load(), stopped);
    const char* between = "";
    for (const SignalPair& pair : pairs) {
        Say(R"({}{{"at":{:.6f},"offsetMs":{:.3f}}})", between, pair.flashSeconds,
            (pair.flashSeconds - pair.toneSeconds) * 1000);
        between = ",";
    }
    Say("]}}\n");
}

int run_signal(SignalArguments& arguments) {
    const std::string error = take_texts(arguments);
    if (!error.empty()) return Complain(arguments.json, "tarn sync signal", error);
    const std::atomic<bool>& stop = WatchStopSignal();
    Recorder recorder(arguments.record, MakeSignalPictures(arguments.signal),
                      MakeSignalSound(arguments.signal));
    bool done = recorder.Prepare();
    if (done) {
        const RecordReporter reporter(recorder, arguments.json);
        done = recorder.Run(stop);
    }
    if (!done) return Complain(arguments.json, "tarn sync signal", recorder.Error());
    print_signal(arguments, recorder, stop);
    return EXIT_SUCCESS;
}

struct MeasureArguments {
    std::string clip;
    std::string plot;
    bool json = false;
};

std::string title_of(const MeasureArguments& arguments, const SyncMeasurement& measurement) {
    return fmt::format("{}: {} pairs in {}{}",
                       std::filesystem::path(arguments.clip).filename().string(),
                       measurement.pairs.size(), TextOfSeconds(measurement.seconds),
                       measurement.stopped ? ", where it was stopped" : "");
}

void print_text(const MeasureArguments& arguments, const SyncMeasurement& measurement,
                const SyncFigures& figures) {
    Say("{} ({} flashes, {} tones); positive: the picture comes later\n",
        title_of(arguments, measurement), measurement.flashes, measurement.tones);
    for (const MeasuredPair& pair : measurement.pairs) {
        Say("{:>10.3f} s {:>+9.1f} ms\n", pair.seconds, pair.offsetMs);
    }
    if (measurement.pairs.empty()) return;
    Say("median {:+.1f} ms, spread {:.1f} ms ({:+.1f} to {:+.1f}), drift {}\n", figures.median,
        figures.Spread(), figures.least, figures.most, TextOfDrift(figures));
}

void print_json(const MeasureArguments& arguments, const SyncMeasurement& measurement,
                const SyncFigures& figures) {
    Say(R"({{"event":"done","path":{},"seconds":{:.3f},"flashes":{},"tones":{},"frameMs":{:.3f},)"
        R"("blockMs":{:.3f},"stopped":{},"pairs":[)",
        JsonString(arguments.clip), measurement.seconds, measurement.flashes, measurement.tones,
        measurement.frameMs, measurement.blockMs, measurement.stopped);
    const char* between = "";
    for (const MeasuredPair& pair : measurement.pairs) {
        Say(R"({}{{"at":{:.6f},"offsetMs":{:.3f}}})", between, pair.seconds, pair.offsetMs);
        between = ",";
    }
    const auto& drift = figures.driftPerMinute;
    Say(R"(],"median":{:.3f},"least":{:.3f},"most":{:.3f},"spread":{:.3f},"driftPerMinute":{}}})"
        "\n",
        figures.median, figures.least, figures.most, figures.Spread(),
        drift ? fmt::format("{:.3f}", *drift) : "null");
}

int run_measure(const MeasureArguments& arguments) {
    const std::atomic<bool>& stop = WatchStopSignal();
    SyncMeasurement measurement;
    std::string error;
    if (!CanWriteDrawing(arguments.plot, error)) {
        return Complain(arguments.json, "tarn sync measure", error);
    }
    bool measured = false;
    {
        ProgressLine progress;
        long long shown = zTime::MicroNow();
        measured = MeasureSync(
            arguments.clip,
            [&](double share) {
                const long long now = zTime::MicroNow();
                if (now - shown >= kViewUs) {
                    progress.Show(ProgressBar(share) + " " + TextOfSeconds(measurement.seconds));
                    shown = now;
                }
                return stop.load();
            },
            measurement, error);
    }
    if (!measured) return Complain(arguments.json, "tarn sync measure", error);
    const SyncFigures figures = FiguresOf(measurement.pairs);
    if (arguments.json) {
        print_json(arguments, measurement, figures);
    } else {
        print_text(arguments, measurement, figures);
    }
    if (measurement.pairs.empty()) {
        return Complain(
            arguments.json, "tarn sync measure",
            fmt::format("'{}': no pair{}; a green flash in the middle and a DTMF tone on the left, "
                        "less than half a second apart, make one",
                        arguments.clip, measurement.stopped ? " before it was stopped" : ""));
    }
    // What was found so far is no answer to what was asked.
    const int result = measurement.stopped ? EXIT_FAILURE : EXIT_SUCCESS;
    if (arguments.plot.empty()) return result;
    const std::string drawing =
        DrawSyncFigures(title_of(arguments, measurement), measurement, figures);
    if (WriteDrawing(arguments.plot, drawing, error)) return result;
    return Complain(arguments.json, "tarn sync measure", error);
}

void add_signal(Command& sync) {
    auto arguments = std::make_shared<SignalArguments>();
    Command signal = sync.AddCommand(
        "signal", "Make a clip to send through a device: flashes, tones and the metronome");
    signal.AddOption("OUTPUT", arguments->record.output, "a .mov, .mp4 or .m4v file").Required();
    signal
        .AddOption("--offset", arguments->signal.offsetsMs,
                   "milliseconds from tone to flash, positive when the picture comes later; "
                   "several (400,-400) take turns")
        .Delimiter(',')
        .Between(-kLargestSignalOffsetMs, kLargestSignalOffsetMs, "milliseconds")
        .ShowDefault("0");
    signal.AddOption("--seconds", arguments->signal.seconds, "how long it is")
        .Between(kShortestSignalSeconds, 86400, "seconds")
        .ShowDefault();
    signal.AddOption("--rate", arguments->rate, "frames a second, such as 25 or 60000/1001")
        .ShowDefault();
    signal.AddOption("--size", arguments->size, "of the picture")
        .TypeName("WIDTHxHEIGHT")
        .ShowDefault();
    signal.AddOption("--video", arguments->record.video, "encoder of the picture")
        .OneOf({"x264", "ProRes", "MJPEG", "Mpeg2"})
        .ShowDefault();
    signal.AddOption("--audio", arguments->record.audio, "encoder of the sound")
        .OneOf({"pcm", "aac"})
        .ShowDefault();
    signal.AddJsonFlag(arguments->json);
    signal.OnRun([arguments] { return run_signal(*arguments); });
}

void add_measure(Command& sync) {
    auto arguments = std::make_shared<MeasureArguments>();
    Command measure =
        sync.AddCommand("measure", "Measure how far flashes and tones of a clip are apart");
    measure.AddOption("CLIP", arguments->clip, "any clip that FFmpeg reads").Required();
    measure.AddOption("--plot", arguments->plot, "draw the offsets over time into this SVG file");
    measure.AddJsonFlag(arguments->json);
    measure.OnRun([arguments] { return run_measure(*arguments); });
}

}  // namespace

void AddSyncCommand(Command& program) {
    Command sync = program.AddCommand("sync",
                                      "Measure how far sound and picture are apart; see "
                                      "docs/measuring-sync.md");
    sync.NeedsCommand();
    add_signal(sync);
    add_measure(sync);
}
