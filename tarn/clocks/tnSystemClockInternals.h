#pragma once

#include <atomic>
#include <memory>

#include "spar/zMutex.h"
#include "spar/zThread.h"
#include "spar/zThreadMain.h"
#include "tarn/clocks/tnClock.h"

class machShallowSleep;
class tnTimeSource;

/// The thread body of a system clock: the schedule, the media timeline, and the loop that ticks.
///
/// This loop stands on zTime and zThread alone and so runs anywhere; a kernel with better timing
/// replaces Main. The operations are those of tnSystemClock.
///
/// Plain words that the host's threads set while the loop runs are relaxed atomics: a loop that
/// sees one a tick late does no harm.
class tnSystemClockInternals : public zThreadMain {
public:
    /// The best variant for this platform; the caller owns it. It does not count as a reference to
    /// `clock`, which outlives it.
    static tnSystemClockInternals* Factory(tnClock& clock, double rate,
                                           tnClock::clock_rate_accuracy accuracy);

    tnSystemClockInternals(tnClock& clock, double rate, tnClock::clock_rate_accuracy accuracy);
    tnSystemClockInternals(const tnSystemClockInternals&) = delete;
    tnSystemClockInternals& operator=(const tnSystemClockInternals&) = delete;
    ~tnSystemClockInternals() override;

    int Main(int argc, const char** argv) override;
    virtual void StartTicking(long long startMediaTime, const char* name, char priority);
    virtual void StopTicking();

    void ChangeRate(double rate);
    double GetRate() const { return fRate.load(std::memory_order_relaxed); }
    void PauseMediaTime();
    void Debug_ToggleMediaTimeAdvancing();
    void RewindMediaTime(long long mediaTime);
    bool IsTicking() const { return fTicking.load(std::memory_order_relaxed); }
    int GetTime(tn_time_rec& time) const;

protected:
    static constexpr unsigned int kTickingTimeKind = 6;

    /// `value` without its fraction, and no further out than a word reaches.
    static long long whole(double value);

    /// The period as a loop copies it at its start. That of rate 0 is endless; it comes as the
    /// longest that a schedule can be reckoned with.
    double loop_period() const;

    /// A record with all that stays the same from tick to tick.
    tn_time_rec fresh_record() const;

    void begin_timeline(long long tickCount) SPAR_REQUIRES(fTimeLock);

    /// Fills in the media time, unless it is held: then the record keeps its last.
    void take_media_time(tn_time_rec& record) const SPAR_REQUIRES(fTimeLock);

    /// Runs on whether media time is held or not.
    void advance_media_time(double period) SPAR_REQUIRES(fTimeLock);

    // fixed
    tnClock& fClock;
    tnTimeSource& fTime;
    const tnClock::clock_rate_accuracy fAccuracy;

    // fixed while ticking; the thread that starts and stops
    std::unique_ptr<zThread> fThread;
    std::unique_ptr<machShallowSleep> fShallowSleep;
    std::atomic<long long> fStartMediaTime{0};

    // any thread, no lock
    std::atomic<bool> fTicking{false};
    std::atomic<double> fMicrosPerTick;
    std::atomic<double> fRate;
    std::atomic<bool> fMediaTimeAdvancing{true};

    // Lock order: fTimeLock > the clock's lock > a watcher's lock. It orders the loop against
    // GetTime; the three atomics under it are also written without it, where the loops say so.
    mutable zMutex fTimeLock;
    std::atomic<long long> fRealTime{0};
    std::atomic<long long> fNominalTime{0};
    std::atomic<double> fMediaTime{0};
    long long fTickCount SPAR_GUARDED_BY(fTimeLock) = 0;

private:
    void produce_tick(tn_time_rec& record, double period) SPAR_EXCLUDES(fTimeLock);
    void sleep_until(long long target, bool precise, zThread::AccurateTimer& timer);
};
