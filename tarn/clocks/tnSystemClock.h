#pragma once

#include <memory>

#include "tarn/clocks/tnClock.h"

class tnSystemClockInternals;

/// Ticks at a fixed rate by the operating system's time; what a host paces its rendering with.
///
/// Stopped, ticking, stopped again. While it ticks a thread keeps a schedule, target n at the
/// start plus n periods, and produces each tick queued: no tick is ever skipped, and after a late
/// wake-up the ticks that are due come back to back. The first two ticks come at the start.
///
/// Media time runs in microseconds from what StartTicking was given, one period a tick.
/// Operations may be called from any thread, but StartTicking, StopTicking and destruction by one
/// at a time.
class TARN_API tnSystemClock : public tnClock {
public:
    /// `rate` in ticks per second, above 0 for a clock that will tick. Does not start.
    tnSystemClock(double rate, tnClock::clock_rate_accuracy accuracy);

    /// Stops, and waits up to a period for the thread. Too late for a derived class that overrides
    /// ProduceTime, which the thread calls until then: that one stops in its own destructor.
    ~tnSystemClock() override;

    /// Where the clock stands: all but `time_kind`; `media_time` runs on while paused.
    /// 0 while ticking; of a stopped clock -1026 when media time stands above 0, else -1, with the
    /// values of its last tick either way.
    ///
    /// May wait for the delivery of a tick, so nothing that runs inside one calls it: not an
    /// override of ProduceTime, which on the ticking thread would wait for itself, and not a
    /// watcher that is called without queueing, under the very lock that the ticking thread waits
    /// for. A watcher on its own thread may.
    int GetTime(tn_time_rec& time) const override;

    /// Starts the thread. The first tick has `tick_count` 1 and `startMediaTime`. `name` is "system
    /// clock" when null; `priority` is the second scheduling argument of zThread::Factory, 4 when
    /// 0. Not guarded against a second start. When the system has no thread to give, the clock is
    /// stopped afterwards: IsTicking tells, and so does zThread's trace line.
    virtual void StartTicking(long long startMediaTime, const char* name, char priority);

    /// Ends the thread and waits for it, up to a period. Does nothing when stopped. Not from a
    /// watcher that is called without queueing.
    virtual void StopTicking();

    /// What GetRate says from now on, and how fast the next StartTicking ticks; a running schedule
    /// keeps its period.
    virtual void ChangeRate(double rate);

    /// Records repeat the last media time from now on, while the timeline runs on underneath.
    virtual void PauseMediaTime();

    /// Moves the timeline to `mediaTime`, before or after now. A paused clock stays paused.
    virtual void RewindMediaTime(long long mediaTime);

    virtual double GetRate() const;

    /// The rate of construction as a whole number, also after ChangeRate.
    int GetIntTickRate() const;

    bool IsTicking() const;

    /// Pauses, or lets media time go on where it has run to meanwhile.
    void Debug_ToggleMediaTimeAdvancing();

private:
    std::unique_ptr<tnSystemClockInternals> fInternals;
    int fIntTickRate;
};
