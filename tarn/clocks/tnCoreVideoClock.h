#pragma once

#include <memory>

#include "tarn/clocks/tnSystemClock.h"

// The platform's display link, as display/displayLink.h makes it.
struct __CVDisplayLink;
struct tnDisplayCallback;

/// Ticks once for each refresh of the main display.
///
/// Media time is the display's own, or that of a linked clock; `tick_count` counts the refreshes
/// from the display's epoch on. Only the display link knows whether it ticks: IsTicking, ChangeRate
/// and PauseMediaTime are those of a system clock that never starts here, and have no effect.
/// Ticks are produced queued, on the display link's thread. The owner stops before destruction.
class TARN_API tnCoreVideoClock : public tnSystemClock {
public:
    tnCoreVideoClock();

    /// Gives the link back; does not stop it first.
    ~tnCoreVideoClock() override;

    /// The record of the latest refresh, which is the latest tick unless that refresh was silent
    /// (see LinkMediaTimeFromClock); 0 always. No lock is taken: read in the middle of an update,
    /// the record's fields may belong to two ticks.
    int GetTime(tn_time_rec& time) const override;

    /// Starts the display link. Time comes from the display and the thread is its own, so all
    /// three arguments are ignored.
    void StartTicking(long long startMediaTime, const char* name, char priority) override;
    void StopTicking() override;

    /// No effect: the display's time is not ours to move.
    void RewindMediaTime(long long mediaTime) override;

    /// Refreshes per second, as the display said at construction.
    double GetRate() const override;

    /// Takes media time from `clock`, of which it keeps a reference, instead of the display, and
    /// gives back the clock of an earlier call. Link before starting.
    ///
    /// A refresh that finds `clock` at the media time of our own record is silent: no tick is
    /// produced, and GetTime tells `clock`'s record with its media time carried on by the display.
    /// The next refresh then finds a difference, so of a clock that stands still every second
    /// refresh is a tick, with the time at which it stands.
    void LinkMediaTimeFromClock(tnClock& clock);

    /// One refresh, as the display link reports it: period and time in units of a second divided by
    /// `timeScale`. `refreshPeriod` and `timeScale` above 0. Public for hosts with a display source
    /// of their own.
    void RenderDisplay(long long refreshPeriod, int timeScale, long long videoTime,
                       unsigned long long hostTime);

private:
    friend struct tnDisplayCallback;

    bool fill_time(tn_time_rec& time, long long refreshPeriod, int timeScale,
                   long long videoTime) const;

    // fixed; null when the display gives no link
    __CVDisplayLink* fDisplayLink = nullptr;

    // display link's thread
    long long fLastVideoTime = 0;

    // written by the display link's thread, read by any: word by word
    tn_time_rec fTime{};

    // before start only
    std::shared_ptr<tnClock> fMediaTimeClock;

    // fixed
    double fRate = 0;
};
