#pragma once

#include <atomic>
#include <memory>

#include "spar/threadSafety.h"
#include "spar/xCUnknown.h"
#include "tarn/clocks/tn_time_rec.h"
#include "tarn/export.h"

class tnClockWatcher;
class zCritical;
template <class T>
class zList;

/// Hands every tick that is produced on it to each of its watchers.
///
/// Reference counted; a new clock has one reference. It does not own its watchers: who adds one
/// removes it before the watcher dies. Who was added first is served first.
/// AddWatcher, RemoveWatcher and ProduceTime may be called from any thread.
class TARN_API tnClock : public xCUnknown {
public:
    /// How a ticking clock waits for its next tick, and what its GetTime calls the real time.
    /// Whatever is not `asnc` counts as `scac`.
    enum clock_rate_accuracy : unsigned int {
        /// Real time is sampled before each tick; an ordinary absolute sleep.
        clock_rate_scac = 'scac',
        /// The more precise sleep; real time is the moment of waking.
        clock_rate_asnc = 'asnc',
    };

    tnClock();
    tnClock(const tnClock&) = delete;
    tnClock& operator=(const tnClock&) = delete;

    int QueryInterface(const char* name, void** object) override;
    int AddRef() override;
    int Release() override;

    ~tnClock() override;

    /// Gives `time` to every watcher and remembers its real time.
    ///
    /// `queued` hands the tick to the watchers' own threads: a copy and a signal each, nothing is
    /// allocated. Otherwise each watcher's ReceiveTime runs here, on the caller's thread and under
    /// the clock's lock: from there a watcher must not remove itself or another from this clock,
    /// nor ask a ticking clock for its time.
    virtual void ProduceTime(const tn_time_rec& time, bool queued);

    /// The time of this clock now. A clock that does not tick by itself cannot say: -1012, with
    /// its id in the record and 0 for both times and the count.
    virtual int GetTime(tn_time_rec& time) const;

    /// 0 from every clock of this library; a system clock tells its rate by GetRate.
    virtual int GetTickRate() const;

    /// Adds at the end; a watcher that is there already stays where it is and is served once.
    void AddWatcher(tnClockWatcher* watcher);

    /// After this the clock no longer touches `watcher`; blocks while a tick is being handed out.
    /// One that is not there is no error.
    void RemoveWatcher(tnClockWatcher* watcher);

    /// Unique in the process, the same for the clock's life.
    unsigned int ClockID() const;

    /// `real_time` of the last tick produced, 0 before the first.
    long long GetLastProducedRealTime() const;

private:
    // Lock order: a system clock's time lock > fCritical > a watcher's lock. Taken a second time by
    // a watcher that adds another while it is served on the producer's thread.
    std::unique_ptr<zList<tnClockWatcher*>> fWatchers SPAR_PT_GUARDED_BY(*fCritical);
    std::unique_ptr<zCritical> fCritical;

    // fixed
    unsigned int fClockID;

    // any thread; written under fCritical, read without it
    std::atomic<long long> fLastProducedRealTime{0};
};
