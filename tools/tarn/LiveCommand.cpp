#include "LiveCommand.h"

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <string>

#include "spar/jigManager.h"
#include "spar/zBoot.h"
#include "spar/zTime.h"
#include "tarn/filters/tnCodecFilters.h"
#include "tarn/filters/tnFilterManager.h"
#include "tarn/foundation/tnTarn.h"
#include "tarn/movies/tnFiles.h"
#include "tarn/sync/tnSleeper.h"

#include "CommandLine.h"
#include "JsonString.h"
#include "Say.h"
#include "SleepOption.h"
#include "StopSignal.h"
#include "live/CommandInput.h"
#include "live/LiveCommands.h"
#include "live/LiveReport.h"
#include "live/LiveShow.h"
#include "live/LiveTrace.h"
#include "live/LiveView.h"
#include "recordLimits.h"

namespace {

constexpr int kPollMs = 50;
constexpr long long kViewUs = 200'000;
constexpr long long kJsonUs = 1'000'000;

struct LiveArguments {
    std::string show;
    std::string addons;
    double seconds = 0;
    double speed = 1;
    bool json = false;
    bool trace = false;
};

/// Where the output add-ons are: beside this program in a build, in the folder of the libraries
/// once installed, whose way from here stays the same where the whole is moved.
std::string addons_folder(const LiveArguments& arguments) {
    if (!arguments.addons.empty()) return arguments.addons;
    std::error_code failed;
    const auto here = std::filesystem::read_symlink("/proc/self/exe", failed).parent_path();
    const auto installed = (here / TARN_ADDONS_FROM_PROGRAM).lexically_normal();
    const auto built = here / "addons";
    return std::filesystem::is_directory(built, failed) ? built.string() : installed.string();
}

/// The library while the command runs.
class Library {
public:
    Library() {
        zBoot::StartAll();
        tnCodecFilters::Register(*tnFilterManager::Default());
        tnFiles::LoadAddons(fAddons);
    }
    ~Library() { zBoot::StopAll(); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    bool Load(const LiveArguments& arguments, std::string& error) {
        const std::string folder = addons_folder(arguments);
        if (fAddons.LoadFolder(folder) >= 0) return true;
        // Outputs of other kinds need no add-on; those that do will say what is missing.
        if (arguments.addons.empty()) return true;
        error = fmt::format("--addons '{}': there is no such folder", folder);
        return false;
    }

private:
    jigManager fAddons;
};

/// One run of the command: input, show, and what is told of it.
class LiveRun {
public:
    explicit LiveRun(const LiveArguments& arguments)
        : fArguments(arguments), fShow(arguments.speed) {
        fShow.SetObserver([this](const LiveOutputEntry& entry) { tell_change(entry); });
        fShow.SetAdviser([this](const std::string& line) { tell_line(line); });
    }

    bool Run(std::string& error);
    bool HasFailed() const { return fShow.HasFailed(); }

private:
    void loop(const std::atomic<bool>& stop);
    bool obey(const std::string& line);
    bool is_over(const std::atomic<bool>& stop) const;
    void tell(long long now);
    void tell_change(const LiveOutputEntry& entry);
    void tell_answer(const std::string& line, const LiveAnswer& answer);
    void tell_line(const std::string& line);
    void print(const std::string& line) const;

    const LiveArguments& fArguments;
    LiveView fView;
    CommandInput fInput;
    long long fTold = 0;
    LiveShow fShow;  // tells its end to those above
};

void LiveRun::print(const std::string& line) const {
    Say("{}\n", line);
}

bool LiveRun::Run(std::string& error) {
    const std::atomic<bool>& stop = WatchStopSignal();
    Show show;
    if (!ReadShow(fArguments.show, show, error)) return false;
    // A movie file keeps room for the index of a recording of an hour unless it is told better.
    for (ShowOutput& output : show.outputs) {
        if (fArguments.seconds <= 0 || output.record.ExistsKey("expected_seconds")) continue;
        output.record.SetDouble("expected_seconds", fArguments.seconds);
    }
    if (!fShow.Prepare(show, error) || !fShow.Start(error)) return false;
    loop(stop);
    fShow.PlayOut();
    fShow.Stop();
    if (fArguments.json) {
        print(JsonOfEnd(fShow));
    } else {
        fView.Show("");
        SayText(stdout, TextOfShow(fShow));
    }
    return true;
}

void LiveRun::loop(const std::atomic<bool>& stop) {
    std::string line;
    while (!is_over(stop)) {
        const bool typed = fInput.WaitForLine(kPollMs, line);
        fShow.Poll();
        if (typed && !obey(line)) return;
        tell(zTime::MicroNow());
    }
}

bool LiveRun::is_over(const std::atomic<bool>& stop) const {
    const bool timeIsUp = fArguments.seconds > 0 && fShow.Seconds() >= fArguments.seconds;
    return stop || timeIsUp || fShow.HasEnded();
}

bool LiveRun::obey(const std::string& line) {
    const LiveAnswer answer = ObeyLiveCommand(line, fShow);
    tell_answer(line, answer);
    return !answer.quit;
}

void LiveRun::tell_answer(const std::string& line, const LiveAnswer& answer) {
    if (fArguments.json) {
        if (answer.stats) print(JsonOfStats(fShow));
        print(fmt::format(R"({{"event":"answer","command":{},"ok":{},"message":{}}})",
                          JsonString(line), answer.ok, JsonString(answer.message)));
    } else if (fView.OnTerminal()) {
        fView.Say(answer.message);
    } else if (!answer.ok) {
        Say(stderr, "tarn live: {}\n", answer.message);
    } else if (answer.stats) {
        SayText(stdout, TextOfShow(fShow));
    }
}

void LiveRun::tell_change(const LiveOutputEntry& entry) {
    if (fArguments.json) {
        print(JsonOfOutput(entry));
    } else if (entry.state == LiveState::kFailed) {
        tell_line(fmt::format("output '{}' has stopped: {}; {} frames kept", entry.description.name,
                              entry.figures.text, entry.figures.frames));
    }
}

void LiveRun::tell_line(const std::string& line) {
    if (fView.OnTerminal() && !fArguments.json) {
        fView.Say(line);
    } else {
        Say(stderr, "tarn live: {}\n", line);
    }
}

void LiveRun::tell(long long now) {
    if (now - fTold < (fArguments.json ? kJsonUs : kViewUs)) return;
    fTold = now;
    if (fArguments.json) {
        print(JsonOfStats(fShow));
    } else if (fView.OnTerminal()) {
        fView.Show(TextOfShow(fShow));
    }
}

int run_live(const LiveArguments& arguments) {
    std::string error;
    bool ran = false;
    bool failed = false;
    LiveTrace::Install(arguments.trace);
    {
        Library library;
        if (library.Load(arguments, error)) {
            LiveRun run(arguments);
            ran = run.Run(error);
            failed = run.HasFailed();
        }
    }
    LiveTrace::Remove();
    if (ran) return failed ? 1 : 0;
    return Complain(arguments.json, "tarn live", error);
}

/// Takes `--sleep`: empty, or what is wrong with it.
std::string take_sleep(const std::string& text) {
    tnSleeper::Configuration sleep{};
    std::string error;
    if (!ParseSleep(text, sleep, error)) return error;
    tnSleeper::SetConfiguration(sleep);
    return {};
}

}  // namespace

void AddLiveCommand(Command& program) {
    auto arguments = std::make_shared<LiveArguments>();
    Command live =
        program.AddCommand("live", "Run a show: sources at their pace, each to several outputs");
    live.AddOption("SHOW", arguments->show, "what runs, as an XML file; see docs/live.md")
        .Required();
    live.AddOption("--seconds", arguments->seconds, "end by itself after that long")
        .Between(0.001, kLongestSeconds, "seconds");
    live.AddOption("--speed", arguments->speed, "pace beside real time: 0.5 takes twice as long")
        .Between(0.001, 100, "times real time")
        .ShowDefault();
    live.AddOption("--sleep", take_sleep,
                   "hold each frame up, to see what a slow machine does: renderer or "
                   "decompressor, and milliseconds, such as renderer:20-80")
        .TypeName("POINT:MIN-MAX");
    live.AddOption("--addons", arguments->addons, "folder of the output add-ons");
    live.AddJsonFlag(arguments->json);
    live.AddFlag("--trace", arguments->trace, "print what the library notes to standard error");
    live.SetFooter(
        "Commands on standard input while it runs:\n"
        "  add <output .../>   a further output (or source), or the name of a file that holds it\n"
        "  remove NAME         end an output and forget it\n"
        "  enable NAME on|off  switch an output\n"
        "  stats               figures now\n"
        "  quit                end the show");
    live.OnRun([arguments] { return run_live(*arguments); });
}
