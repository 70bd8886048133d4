#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "LiveOutput.h"
#include "Show.h"

class LiveSource;
class tnSystemClock;

enum class LiveState {
    kOff,      ///< not started, or switched off
    kRunning,  ///< takes what its source gives
    kFailed,   ///< stopped by itself; the figures say why
    kEnded,    ///< its source is over
    kRemoved,  ///< about to go from the list
};
const char* TextOf(LiveState state);

/// One output of a running show.
struct LiveOutputEntry {
    ShowOutput description;
    std::unique_ptr<LiveOutput> output;
    LiveState state = LiveState::kOff;
    LiveFigures figures;
    std::string location;
    long long firstFrame = 0;  ///< of its source, when it started last
};

/// A running show: its sources on their clocks, and its outputs.
///
/// One thread, the control thread, calls everything here. What goes wrong with one output is told
/// and stops that output alone.
class LiveShow {
public:
    /// `speed` stretches the clocks alone, not the times of frames: 0.5 plays at half the pace.
    explicit LiveShow(double speed);
    ~LiveShow();

    /// Opens the sources, checks every output, and starts those that are enabled. False with one
    /// line in `error`.
    bool Prepare(const Show& show, std::string& error);
    /// Lets the clocks tick. False with one line in `error` when there is no thread to be had for
    /// a source or a clock; the show is to be stopped then.
    bool Start(std::string& error);
    /// Plays on until the pictures that stand in encoders now are in the outputs: an encoder that
    /// looks ahead holds half a second of them back, and gives them out only as others follow.
    /// Blocks for two seconds of the show at most, or for 50 frames of a slow source, but not
    /// longer than a minute of the show.
    void PlayOut();
    /// Ends everything; outputs are closed when it returns.
    void Stop();

    // While it runs. False with one line in `error`, and nothing changed.
    /// `text` is one <output> or <source> element.
    bool Add(const std::string& text, std::string& error);
    bool Remove(const std::string& name, std::string& error);
    bool Enable(const std::string& name, bool on, std::string& error);

    /// Takes the outputs' figures, and stops what has failed or whose source is over.
    void Poll();
    /// Whether every source is over.
    bool HasEnded() const;
    bool HasFailed() const { return fFailures > 0; }
    /// Since Start, on the clock on the wall.
    double Seconds() const;

    const std::vector<std::unique_ptr<LiveSource>>& Sources() const { return fSources; }
    const std::vector<LiveOutputEntry>& Outputs() const { return fOutputs; }
    /// Called with every output whose state has changed.
    void SetObserver(std::function<void(const LiveOutputEntry&)> observer) {
        fObserver = std::move(observer);
    }

    /// Called with a line on what may be a mistake in an output that was added all the same.
    void SetAdviser(std::function<void(const std::string&)> adviser) {
        fAdviser = std::move(adviser);
    }

private:
    struct ReleaseClock {
        void operator()(tnSystemClock* clock) const;
    };

    bool open_source(const ShowSource& source, std::string& error);
    bool add_output(const ShowOutput& output, std::string& error);
    bool add_source(const std::string& text, std::string& error);
    void advise(const ShowOutput& output) const;
    bool is_free(const ShowOutput& output, std::string& error) const;
    bool start_output(LiveOutputEntry& entry, std::string& error);
    void stop_output(LiveOutputEntry& entry, LiveState state);
    bool note_if_empty(LiveOutputEntry& entry);
    bool note_nothing_kept(LiveOutputEntry& entry);
    long long frames_lost(const LiveOutputEntry& entry);
    long long longest_play_out(const LiveOutputEntry& entry);
    void set_state(LiveOutputEntry& entry, LiveState state);
    bool owes_pictures(const LiveOutputEntry& entry, long long frame);
    bool remove_source(const std::string& name, std::string& error);
    double pace_of(const LiveSource& source) const;
    bool run_source(LiveSource& source, std::string& error);
    void forget_source(LiveSource& source);
    LiveSource* find_source(const std::string& name);
    LiveOutputEntry* find_output(const std::string& name);

    const double fSpeed;
    Show fShow;  // as it stands now
    std::vector<std::unique_ptr<LiveSource>> fSources;
    std::map<double, std::unique_ptr<tnSystemClock, ReleaseClock>> fClocks;  // by rate
    std::vector<LiveOutputEntry> fOutputs;  // they go before the sources
    std::function<void(const LiveOutputEntry&)> fObserver;
    std::function<void(const std::string&)> fAdviser;
    long long fStartUs = -1;
    int fFailures = 0;
};
