#pragma once

#include <atomic>
#include <memory>

#include "spar/threadSafety.h"
#include "spar/zThreadMain.h"
#include "tarn/clocks/tn_time_rec.h"
#include "tarn/export.h"

class zCritical;
class zSignal;
class zThread;

/// Receives the ticks of a clock on a thread of its own, and loses ticks rather than fall behind.
///
/// Derive from it, supply ReceiveTime, add it to a clock and start it; Start, Stop and destruction
/// belong to one thread at a time. The owner removes it from its clock before it dies, and the
/// derived destructor calls Stop: until that returns the thread still calls ReceiveTime.
///
/// A watcher holds one tick, or two, never a queue:
///  - single-tick: a busy receiver gets the newest tick next, those before it are lost;
///  - multiple-tick: the two newest ticks are kept and each wake-up delivers the older one that was
///    not yet delivered, so a receiver that was busy for two ticks lags by one until some wake-up
///    brings no new tick.
/// A loss is not reported; it shows as a gap in `tick_count`.
class TARN_API tnClockWatcher : public zThreadMain {
public:
    tnClockWatcher();
    tnClockWatcher(const tnClockWatcher&) = delete;
    tnClockWatcher& operator=(const tnClockWatcher&) = delete;
    ~tnClockWatcher() override;

    /// The thread's body; Start runs it.
    int Main(int argc, const char** argv) override;

    /// Starts the thread, with no tick held. `name` is "clock watcher" when null; `priority` is the
    /// second scheduling argument of zThread::Factory, 4 when 0.
    ///
    /// Not guarded: started twice in a row, it forgets the first thread, for which nobody can wait
    /// any more. Not from ReceiveTime. When the system has no thread to give, it is not running
    /// afterwards: IsRunning tells, and so does zThread's trace line.
    virtual void Start(char priority, const char* name, bool multipleTickReceiver);

    /// Ends the thread and waits for it; a tick that is held is not delivered. Does nothing when
    /// not started. From ReceiveTime it cannot wait for the thread that it runs on: that ends after
    /// the tick, and the Stop, Start or destructor that comes next from elsewhere waits for it.
    virtual void Stop();

    virtual bool IsRunning() const;

    /// One tick; on the watcher's thread, or on the producer's when it produced without queueing.
    /// No lock of the watcher is held.
    virtual void ReceiveTime(const tn_time_rec& time) = 0;

    /// The rate that this watcher would like, for the host to ask; no clock looks at it. -1013, and
    /// `rate` as it was, when it has no wish.
    virtual int GetDesiredTickRate(int* rate) const;

    /// Called by tnClock::ProduceTime. Queued, it keeps a copy and wakes the thread; otherwise it
    /// calls ReceiveTime at once, for which the watcher need not have been started.
    void SignalTime(const tn_time_rec& time, bool queued);

private:
    friend struct tnClockWatcherPeek;

    // Not IsRunning: what a derived class tells others is not what the thread goes by.
    bool running() const { return fRunning.load(std::memory_order_relaxed); }
    void end_thread();
    bool receives_multiple() const SPAR_EXCLUDES(*fCritical);
    void single_tick_receiver_run_loop();
    void multiple_tick_receiver_run_loop();
    void store_single(const tn_time_rec& time) SPAR_REQUIRES(*fCritical);
    void store_multiple(const tn_time_rec& time) SPAR_REQUIRES(*fCritical);

    // any thread
    std::atomic<bool> fRunning{false};

    // the thread that starts and stops
    std::unique_ptr<zThread> fThread;

    // fixed
    std::unique_ptr<zSignal> fSignal;
    std::unique_ptr<zCritical> fCritical;

    // Set by Start together with the emptying of the slots: a tick in between would be stored as
    // one mode stores it and read as the other does.
    bool fMultipleTickReceiver SPAR_GUARDED_BY(*fCritical) = false;

    // producers write, the watcher's thread reads
    tn_time_rec fSingleTime SPAR_GUARDED_BY(*fCritical){};
    tn_time_rec fSlots[2] SPAR_GUARDED_BY(*fCritical){};
    // Empty at -1. The first is that of fSingleTime where one tick is held.
    long long fSlotSequence[2] SPAR_GUARDED_BY(*fCritical){-1, -1};
    // Never starts over, so that a stopped watcher's numbers cannot come back in its next life.
    long long fNextSequence SPAR_GUARDED_BY(*fCritical) = 0;
};
