#include "LiveShow.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>

#include "spar/zThread.h"
#include "spar/zTime.h"
#include "tarn/clocks/tnSystemClock.h"
#include "tarn/foundation/tnOutputAccessor.h"

#include "LiveSource.h"
#include "livePlaces.h"

namespace {

constexpr double kMicro = 1e6;
// Encoders hold a number of frames, however long those are; who stops a show does not wait longer.
constexpr double kPlayOutSeconds = 2;
constexpr double kPlayOutFrames = 50;
constexpr double kLongestPlayOutSeconds = 60;
// Longer than a late joiner waits for its first picture, which begins a group.
constexpr double kEmptySeconds = 30;
constexpr unsigned int kLookAgainUs = 10'000;
constexpr const char* kNoThread =
    "the machine has no thread left for it; end other programs and try again";

template <typename Element>
std::string names_of(const std::vector<Element>& elements) {
    std::vector<std::string> names;
    for (const Element& element : elements) names.push_back(element.name);
    return names.empty() ? "none" : fmt::format("{}", fmt::join(names, ", "));
}

bool check_output(const ShowOutput& output, const Show& show, std::string& error) {
    const LiveOutputKind* const kind = LiveOutputKinds::Find(output.kind);
    if (!kind) {
        error = fmt::format("output '{}': unknown kind '{}'; there are: {}", output.name,
                            output.kind, fmt::join(LiveOutputKinds::Names(), ", "));
        return false;
    }
    return !kind->check || kind->check(output, show, error);
}

/// Options behind an address do not make it another one. A file may have several names.
bool is_same_place(const std::string& a, const std::string& b) {
    if (IsAddress(a)) return a.substr(0, a.find('?')) == b.substr(0, b.find('?'));
    std::error_code failed;
    return std::filesystem::equivalent(PathOf(a), PathOf(b), failed) && !failed;
}

bool start_clock(tnSystemClock& clock, double rate, std::string& error) {
    clock.StartTicking(0, nullptr, 0);
    if (clock.IsTicking()) return true;
    error = fmt::format("the clock of {:g} ticks a second: {}", rate, kNoThread);
    return false;
}

}  // namespace

const char* TextOf(LiveState state) {
    switch (state) {
        case LiveState::kOff:
            return "off";
        case LiveState::kRunning:
            return "running";
        case LiveState::kFailed:
            return "failed";
        case LiveState::kEnded:
            return "ended";
        case LiveState::kRemoved:
            return "removed";
    }
    return "";
}

void LiveShow::ReleaseClock::operator()(tnSystemClock* clock) const {
    clock->Release();
}

LiveShow::LiveShow(double speed) : fSpeed(speed) {}

LiveShow::~LiveShow() {
    Stop();
}

bool LiveShow::Prepare(const Show& show, std::string& error) {
    fShow.sources.clear();
    for (const ShowSource& source : show.sources) {
        if (!open_source(source, error)) return false;
    }
    fShow = show;
    for (const ShowOutput& output : show.outputs) {
        if (!check_output(output, fShow, error)) return false;
    }
    fShow.outputs.clear();
    return std::all_of(show.outputs.begin(), show.outputs.end(),
                       [&](const ShowOutput& output) { return add_output(output, error); });
}

bool LiveShow::open_source(const ShowSource& source, std::string& error) {
    std::unique_ptr<LiveSource> opened = LiveSource::Open(source, error);
    if (!opened) return false;
    const double rate = pace_of(*opened);
    if (!(rate >= kSlowestRate)) {
        error = fmt::format(
            "source '{}': would give {:g} frames a second at this speed, too few for a clock to be "
            "stopped in good time; raise --speed until they are {:g}",
            source.name, rate, kSlowestRate);
        return false;
    }
    fSources.push_back(std::move(opened));
    fShow.sources.push_back(source);
    return true;
}

bool LiveShow::add_output(const ShowOutput& output, std::string& error) {
    const LiveOutputKind* const kind = LiveOutputKinds::Find(output.kind);
    LiveOutputEntry entry;
    entry.description = output;
    entry.output = kind->make(output, *find_source(output.source), error);
    if (!entry.output) return false;
    entry.location = entry.output->Location();
    if (output.Enabled() && !start_output(entry, error)) return false;
    if (!output.Enabled() && fObserver) fObserver(entry);
    fOutputs.push_back(std::move(entry));
    fShow.outputs.push_back(output);
    advise(output);
    return true;
}

// A key that nobody here reads may be meant for an add-on from elsewhere, and is no failure.
void LiveShow::advise(const ShowOutput& output) const {
    if (!fAdviser) return;
    const std::vector<std::string> unread = LiveOutputKinds::UnreadAttributes(output);
    if (unread.empty()) return;
    fAdviser(fmt::format("output '{}': nothing here reads {}; check the spelling", output.name,
                         fmt::join(unread, ", ")));
}

// Outputs that take turns may name one address, and one that was switched on again writes where its
// description does not say: what counts is who writes there now.
bool LiveShow::is_free(const ShowOutput& output, std::string& error) const {
    const std::string place = output.Location();
    if (place.empty() || tnOutputAccessor(output.record).AutoIncrementFileName()) return true;
    for (const LiveOutputEntry& other : fOutputs) {
        if (other.state != LiveState::kRunning || other.description.name == output.name) continue;
        if (!is_same_place(place, other.location)) continue;
        error = fmt::format(
            "output '{}': output '{}' is writing to '{}'; switch that off first, or "
            "choose another output_url",
            output.name, other.description.name, other.location);
        return false;
    }
    return true;
}

bool LiveShow::start_output(LiveOutputEntry& entry, std::string& error) {
    if (!is_free(entry.description, error)) return false;
    if (!entry.output->Start(error)) return false;
    entry.figures = {};
    entry.firstFrame = find_source(entry.description.source)->Figures().frames;
    entry.location = entry.output->Location();
    set_state(entry, LiveState::kRunning);
    return true;
}

void LiveShow::stop_output(LiveOutputEntry& entry, LiveState state) {
    if (entry.state == LiveState::kRunning) {
        entry.output->Stop();
        const LiveFigures last = entry.output->Figures();
        if (state != LiveState::kFailed || last.status != 0) entry.figures = last;
        const bool isEmpty = note_if_empty(entry) || note_nothing_kept(entry);
        // What only the closing has shown is a failure all the same.
        if (entry.figures.status != 0 || isEmpty) state = LiveState::kFailed;
        if (state == LiveState::kFailed) ++fFailures;
    }
    set_state(entry, state);
}

// Where the encoder of the pictures cannot take what the source gives, the movie never begins and
// has no failure to tell.
bool LiveShow::note_if_empty(LiveOutputEntry& entry) {
    const auto given = static_cast<double>(frames_lost(entry));
    const LiveSource* const source = find_source(entry.description.source);
    if (!source || given < kEmptySeconds * source->FramesPerSecond()) return false;
    entry.figures.text = fmt::format(
        "nothing has come out of its encoders for {:.0f} seconds; do they take the source's "
        "pictures and sound?",
        given / source->FramesPerSecond());
    return true;
}

// An encoder that looks ahead, or that a late output waited for at its next key frame.
bool LiveShow::note_nothing_kept(LiveOutputEntry& entry) {
    if (frames_lost(entry) <= 0) return false;
    entry.figures.text =
        "nothing was kept: its encoder had not given out a picture for it yet; let it run longer";
    return true;
}

/// The pictures that an output was given and of which it has none; 0 where it has one, takes none
/// or has failed.
long long LiveShow::frames_lost(const LiveOutputEntry& entry) {
    const LiveFigures& figures = entry.figures;
    if (figures.frames > 0 || figures.status != 0 || !entry.description.Track(TN_MEDIA_VIDEO)) {
        return 0;
    }
    const LiveSource* const source = find_source(entry.description.source);
    return source ? source->Figures().frames - entry.firstFrame : 0;
}

void LiveShow::set_state(LiveOutputEntry& entry, LiveState state) {
    if (entry.state == state) return;
    entry.state = state;
    if (fObserver) fObserver(entry);
}

double LiveShow::pace_of(const LiveSource& source) const {
    return source.FramesPerSecond() * fSpeed;
}

bool LiveShow::Start(std::string& error) {
    fStartUs = zTime::MicroNow();
    for (const std::unique_ptr<LiveSource>& source : fSources) {
        if (!run_source(*source, error)) return false;
    }
    return std::all_of(fClocks.begin(), fClocks.end(), [&](const auto& clock) {
        return start_clock(*clock.second, clock.first, error);
    });
}

bool LiveShow::run_source(LiveSource& source, std::string& error) {
    const double rate = pace_of(source);
    auto& clock = fClocks[rate];
    if (!clock) clock.reset(new tnSystemClock(rate, tnClock::clock_rate_scac));
    source.SetPace(rate);
    source.Start(0, nullptr, false);
    if (!source.IsRunning()) {
        error = fmt::format("source '{}': {}", source.Name(), kNoThread);
        return false;
    }
    clock->AddWatcher(&source);
    return true;
}

void LiveShow::PlayOut() {
    std::map<std::string, long long> frames;
    for (const std::unique_ptr<LiveSource>& source : fSources) {
        frames[source->Name()] = source->Figures().frames;
    }
    const long long begun = zTime::MicroNow();
    const auto owes = [&](const LiveOutputEntry& entry) {
        return owes_pictures(entry, frames[entry.description.source]);
    };
    const auto waits = [&](const LiveOutputEntry& entry) {
        return owes(entry) && zTime::MicroNow() - begun < longest_play_out(entry);
    };
    for (Poll(); std::any_of(fOutputs.begin(), fOutputs.end(), waits); Poll()) {
        zThread::MicroSleep(kLookAgainUs);
    }
}

/// In microseconds on the wall.
long long LiveShow::longest_play_out(const LiveOutputEntry& entry) {
    const double frames = kPlayOutFrames / find_source(entry.description.source)->FramesPerSecond();
    const double seconds = std::clamp(frames, kPlayOutSeconds, kLongestPlayOutSeconds);
    return static_cast<long long>(seconds * kMicro / fSpeed);
}

// An output that joined an encoder began at a key frame and lacks those before it: it is given the
// longest time there is.
bool LiveShow::owes_pictures(const LiveOutputEntry& entry, long long frame) {
    return entry.state == LiveState::kRunning && entry.description.Track(TN_MEDIA_VIDEO) &&
           entry.figures.frames < frame - entry.firstFrame;
}

void LiveShow::Stop() {
    for (const auto& [rate, clock] : fClocks) {
        clock->StopTicking();
        for (const std::unique_ptr<LiveSource>& source : fSources) {
            clock->RemoveWatcher(source.get());
        }
    }
    for (const std::unique_ptr<LiveSource>& source : fSources) source->Stop();
    for (LiveOutputEntry& entry : fOutputs) {
        if (entry.state == LiveState::kRunning) stop_output(entry, LiveState::kEnded);
    }
}

LiveSource* LiveShow::find_source(const std::string& name) {
    for (const std::unique_ptr<LiveSource>& source : fSources) {
        if (source->Name() == name) return source.get();
    }
    return nullptr;
}

LiveOutputEntry* LiveShow::find_output(const std::string& name) {
    for (LiveOutputEntry& entry : fOutputs) {
        if (entry.description.name == name) return &entry;
    }
    return nullptr;
}

bool LiveShow::Add(const std::string& text, std::string& error) {
    if (text.find("<source") != std::string::npos) return add_source(text, error);
    ShowOutput output;
    if (!ReadShowOutput(text, fShow, output, error)) return false;
    Show with = fShow;
    with.outputs.push_back(output);
    return check_output(output, with, error) && add_output(output, error);
}

bool LiveShow::add_source(const std::string& text, std::string& error) {
    ShowSource source;
    if (!ReadShowSource(text, fShow, source, error) || !open_source(source, error)) return false;
    LiveSource& opened = *fSources.back();
    const double rate = pace_of(opened);
    const bool newClock = fClocks.count(rate) == 0;
    if (run_source(opened, error) && (!newClock || start_clock(*fClocks[rate], rate, error))) {
        return true;
    }
    forget_source(opened);
    // One that stands still would be taken for one that ticks.
    if (newClock) fClocks.erase(rate);
    return false;
}

bool LiveShow::Remove(const std::string& name, std::string& error) {
    LiveOutputEntry* const entry = find_output(name);
    if (!entry) return remove_source(name, error);
    stop_output(*entry, LiveState::kRemoved);
    std::erase_if(fShow.outputs, [&](const ShowOutput& output) { return output.name == name; });
    fOutputs.erase(fOutputs.begin() + (entry - fOutputs.data()));
    return true;
}

bool LiveShow::remove_source(const std::string& name, std::string& error) {
    LiveSource* const source = find_source(name);
    if (!source) {
        error = fmt::format(
            "there is no output or source '{}'; there are the outputs: {}; the sources: {}", name,
            names_of(fShow.outputs), names_of(fShow.sources));
        return false;
    }
    for (const ShowOutput& output : fShow.outputs) {
        if (output.source != name) continue;
        error = fmt::format("source '{}' still serves output '{}'; remove that first", name,
                            output.name);
        return false;
    }
    forget_source(*source);
    return true;
}

void LiveShow::forget_source(LiveSource& source) {
    fClocks[pace_of(source)]->RemoveWatcher(&source);
    source.Stop();
    std::erase_if(fShow.sources,
                  [&](const ShowSource& other) { return other.name == source.Name(); });
    std::erase_if(fSources, [&](const auto& other) { return other.get() == &source; });
}

bool LiveShow::Enable(const std::string& name, bool on, std::string& error) {
    LiveOutputEntry* const entry = find_output(name);
    if (!entry) {
        error =
            fmt::format("there is no output '{}'; there are: {}", name, names_of(fShow.outputs));
        return false;
    }
    const bool running = entry->state == LiveState::kRunning;
    if (running == on) return true;
    if (!on) {
        stop_output(*entry, LiveState::kOff);
        return true;
    }
    if (!check_output(entry->description, fShow, error)) return false;
    return start_output(*entry, error);
}

void LiveShow::Poll() {
    for (LiveOutputEntry& entry : fOutputs) {
        if (entry.state != LiveState::kRunning) continue;
        entry.figures = entry.output->Figures();
        entry.location = entry.output->Location();
        note_if_empty(entry);
        if (entry.figures.status != 0) {
            stop_output(entry, LiveState::kFailed);
        } else if (find_source(entry.description.source)->Figures().ended) {
            stop_output(entry, LiveState::kEnded);
        }
    }
}

bool LiveShow::HasEnded() const {
    return std::all_of(fSources.begin(), fSources.end(),
                       [](const auto& source) { return source->Figures().ended.load(); });
}

double LiveShow::Seconds() const {
    if (fStartUs < 0) return 0;
    return static_cast<double>(zTime::MicroNow() - fStartUs) / kMicro;
}
