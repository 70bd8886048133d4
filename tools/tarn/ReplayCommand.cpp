#include "ReplayCommand.h"

#include <atomic>
#include <fmt/format.h>
#include <functional>
#include <memory>
#include <string>

#include "CommandLine.h"
#include "JsonString.h"
#include "ProgressLine.h"
#include "Say.h"
#include "StopSignal.h"
#include "TextUnits.h"
#include "replay/ReplayCut.h"
#include "replay/ReplayList.h"
#include "replay/ReplayPurge.h"
#include "replay/ReplayWatch.h"

namespace {

struct ReplayArguments {
    std::string place;
    bool json = false;
    // cut
    std::string output;
    std::string in;
    std::string out;
    std::string last;
    bool exact = false;
    // purge
    double keep = 0;
    bool force = false;
};

int tell_failure(const ReplayArguments& arguments, const std::string& error) {
    return Complain(arguments.json, "tarn replay", error);
}

int run_list(const ReplayArguments& arguments) {
    const ReplayLibrary library;
    ReplayRecording recording;
    std::string error;
    if (!ReadReplay(arguments.place, recording, error)) return tell_failure(arguments, error);
    Say("{}", arguments.json ? JsonOfReplay(recording) + "\n" : TextOfReplay(recording));
    return 0;
}

/// A mark as it was typed: below 0 it counts from the end. False with one line in `error`.
bool resolve(const std::string& text, const char* option, long long end, long long& time,
             std::string& error) {
    if (text.empty()) return true;
    if (!ParseReplayTime(text, time)) {
        error = fmt::format("{} '{}': is no time; give seconds, as 12.5, or as 1:02:03.5", option,
                            text);
        return false;
    }
    if (text[0] == '-') time += end;
    return true;
}

bool marks_of(const ReplayArguments& arguments, const ReplayRecording& recording,
              ReplayCutWish& wish, std::string& error) {
    wish.in = recording.Start();
    wish.out = recording.Stop();
    long long last = 0;
    if (!resolve(arguments.in, "--in", recording.Stop(), wish.in, error) ||
        !resolve(arguments.out, "--out", recording.Stop(), wish.out, error) ||
        !resolve(arguments.last, "--last", 0, last, error)) {
        return false;
    }
    if (!arguments.last.empty()) wish.in = wish.out - last;
    if (wish.in < wish.out) return true;
    error = fmt::format(
        "the stretch from {:.3f} to {:.3f} s is empty; the recording goes from "
        "{:.3f} to {:.3f} s",
        ReplaySeconds(wish.in), ReplaySeconds(wish.out), ReplaySeconds(recording.Start()),
        ReplaySeconds(recording.Stop()));
    return false;
}

void print_cut(const ReplayArguments& arguments, const ReplayCutResult& result) {
    if (arguments.json) {
        Say(R"({{"event":"done","path":{},"from":{:.6f},"to":{:.6f},"frames":{},"segments":{},"gapSeconds":{:.6f},"encoded":{},"stopped":{}}})"
            "\n",
            JsonString(arguments.output), ReplaySeconds(result.from), ReplaySeconds(result.to),
            result.frames, result.segments, ReplaySeconds(result.gaps), result.encoded,
            result.stopped);
        return;
    }
    Say("{}: {} to {}, {} frames of {} segments, {}{}{}\n", arguments.output,
        TextOfSeconds(ReplaySeconds(result.from)), TextOfSeconds(ReplaySeconds(result.to)),
        result.frames, result.segments, result.encoded ? "encoded anew" : "copied",
        result.gaps > 0 ? fmt::format(", {} that were not recorded left out",
                                      TextOfSeconds(ReplaySeconds(result.gaps)))
                        : "",
        result.stopped ? ", stopped before its end" : "");
}

/// Shows the share that is done.
std::function<void(double)> shown_on(ProgressLine& line) {
    return [&line](double part) {
        line.Show(fmt::format("{} {:3.0f} %", ProgressBar(part), part * 100));
    };
}

int run_cut(const ReplayArguments& arguments) {
    const std::atomic<bool>& stop = WatchStopSignal();
    const ReplayLibrary library;
    ReplayRecording recording;
    ReplayCutWish wish;
    ReplayCutResult result;
    std::string error;
    wish.output = arguments.output;
    wish.exact = arguments.exact;
    if (!ReadReplay(arguments.place, recording, error) ||
        !marks_of(arguments, recording, wish, error)) {
        return tell_failure(arguments, error);
    }
    bool cut = false;
    {
        ProgressLine line;
        cut = CutReplay(recording, wish, stop, shown_on(line), result, error);
    }
    if (!cut) return tell_failure(arguments, error);
    print_cut(arguments, result);
    return result.stopped ? 1 : 0;
}

int run_purge(const ReplayArguments& arguments) {
    // Between the new manifest and the last file that goes, an end would leave movies that nobody
    // knows of: it is seen through to its own.
    WatchStopSignal();
    const ReplayLibrary library;
    ReplayPurged purged;
    std::string error;
    const auto keep = static_cast<long long>(arguments.keep * kReplayUnitsPerSecond);
    bool done = false;
    {
        ProgressLine line;
        done = PurgeReplay(arguments.place, keep, arguments.force, shown_on(line), purged, error);
    }
    if (!done) return tell_failure(arguments, error);
    if (arguments.json) {
        Say(R"({{"event":"done","removed":{},"kept":{},"bytes":{}}})"
            "\n",
            purged.removed, purged.kept, purged.bytes);
    } else {
        Say("{} segments removed, {} free; {} kept\n", purged.removed, TextOfBytes(purged.bytes),
            purged.kept);
    }
    return 0;
}

void print_news(const ReplayArguments& arguments, const ReplayNews& news) {
    const char* const event = news.kind == ReplayNews::Kind::kAdded     ? "segment"
                              : news.kind == ReplayNews::Kind::kRemoved ? "removed"
                                                                        : "closed";
    const bool isClosed = news.kind == ReplayNews::Kind::kClosed;
    if (arguments.json) {
        const std::string rest =
            isClosed ? "" : fmt::format(R"(,"segment":{})", JsonOfPiece(news.piece));
        Say("{{\"event\":\"{}\"{}}}\n", event, rest);
    } else if (isClosed) {
        Say("closed\n");
    } else {
        Say("{:<8} {:>8}  {} to {}, {}\n", event, news.piece.id,
            TextOfSeconds(ReplaySeconds(news.piece.start)),
            TextOfSeconds(ReplaySeconds(news.piece.stop)), TextOfBytes(news.piece.bytes));
    }
}

int run_watch(const ReplayArguments& arguments) {
    const std::atomic<bool>& stop = WatchStopSignal();
    const ReplayLibrary library;
    std::string error;
    const bool watched = WatchReplay(
        arguments.place, stop, [&](const ReplayNews& news) { print_news(arguments, news); }, error);
    return watched ? 0 : tell_failure(arguments, error);
}

}  // namespace

void AddReplayCommand(Command& program) {
    auto arguments = std::make_shared<ReplayArguments>();
    Command replay = program.AddCommand("replay", "Work with a replay recording");
    replay.NeedsCommand();
    replay.AddOption("FOLDER", arguments->place, "the recording's folder, or its manifest")
        .Required();
    replay.AddJsonFlag(arguments->json);

    Command list = replay.AddCommand("list", "Draw the timeline with its gaps");
    list.OnRun([arguments] { return run_list(*arguments); });

    Command cut = replay.AddCommand("cut", "Make one movie of a stretch");
    cut.AddOption("OUTPUT", arguments->output, "a .mov, .mp4 or .m4v file").Required();
    cut.AddOption("--in", arguments->in,
                  "where it begins: seconds or h:mm:ss on the timeline; below 0 from the end");
    cut.AddOption("--out", arguments->out, "where it ends, likewise");
    cut.AddOption("--last", arguments->last, "that long up to the end, in place of --in")
        .Excludes("--in");
    cut.AddFlag("--exact", arguments->exact,
                "both ends to the frame, encoding anew where a copy cannot");
    cut.OnRun([arguments] { return run_cut(*arguments); });

    Command purge = replay.AddCommand("purge", "Delete all but the last seconds");
    purge.AddOption("--keep", arguments->keep, "seconds to keep")
        .Required()
        .Between(0, 1e9, "seconds");
    purge.AddFlag("--force", arguments->force, "also a recording whose recorder was killed");
    purge.OnRun([arguments] { return run_purge(*arguments); });

    Command watch = replay.AddCommand("watch", "Follow a recording that goes on");
    watch.OnRun([arguments] { return run_watch(*arguments); });

    for (Command part : {list, cut, purge, watch}) {
        part.AddJsonFlag(arguments->json);
    }
}
