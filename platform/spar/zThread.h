#pragma once

#include <functional>
#include <memory>

#include "spar/export.h"
#include "spar/zSpinLead.h"

class zCancelClass;
class zThreadMain;

/// A running thread, and what threads do with time and with the main thread.
///
/// Deleting the object neither waits nor stops the thread: one that nobody waits for is started
/// with `delete zThread::Factory(...)`.
class SPAR_API zThread {
public:
    /// Makes a thread, which runs from then on; the caller owns the object. Null, with a trace
    /// line, when the system has no thread to give. `main` stays the caller's and lives until Main
    /// returns.
    ///
    /// `name` shows in debuggers and tools, cut to 15 bytes. `schedulingClass` 3 is background
    /// work, `number` the niceness (1 to 19). Class 4 wakes from sleep without the usual slack;
    /// `number` 1 to 3 is an ordinary thread; 4 one that works in short bursts and, where the
    /// kernel can, gets its turn at once on loaded cores, in slices so short that long work is
    /// switched more often; 5 to 9 asks for first-in-first-out real time with a priority that rises
    /// by 10 a step. Where the system refuses that, the thread runs as with 4 and the refusal is
    /// traced once a process. Other classes count as 4.
    ///
    /// Where the starter is under a batch or an idle policy, so is the thread, unless it is granted
    /// real time; the starter's own real time is not passed on.
    static zThread* Factory(const char* name, zThreadMain* main, char schedulingClass, char number);

    zThread(const zThread&) = delete;
    zThread& operator=(const zThread&) = delete;
    virtual ~zThread();

    /// Blocks until Main has returned. More than one thread may wait, and waiting again returns at
    /// once. On the thread itself it returns at once too: it would wait for ever.
    virtual void Join() = 0;

    /// Sleeps that many microseconds.
    static void MicroSleep(unsigned int microseconds);

    /// Sleeps until zTime::MicroNow reaches `time`; returns at once when it has. `precise` spends
    /// some processor time to wake closer to it, as AccurateTimer does.
    static void MicroSleepUntil(long long time, bool precise);

    /// Runs `work` on the host's main thread, when it next drains the queue. Does not wait for it.
    ///
    /// Just before, on the main thread: work whose token is cancelled is dropped, and so is work
    /// whose `goOn` says false. Either may be left out. `reserved` is 0. The functions are
    /// destroyed on the main thread. Work runs in the order in which it was handed in.
    static void ExecuteOnMainThread(std::shared_ptr<zCancelClass> token, long long reserved,
                                    std::function<bool()> goOn, std::function<void()> work);

    /// A descriptor that polls readable while work waits for the main thread; the host's loop
    /// watches it and calls DrainMainQueue. Never read, written or closed by the host. -1 if there
    /// is none.
    static int MainQueueDescriptor();

    /// Runs the work that waits, on the calling thread, which is the main thread by that. Work that
    /// is handed in meanwhile waits for the next call. Gives the number of functions that ran. An
    /// exception of the work goes through to the caller, and the rest of the queue stays.
    static int DrainMainQueue();

    class AccurateTimer;

protected:
    zThread() = default;
};

/// Wakes a loop closer to its time than a plain sleep: it sleeps short and spins the rest.
///
/// The lead that it spins follows how late this thread's wake-ups have been, from 20 to 200
/// microseconds. Belongs to one thread, whose timer slack it sets to 1 ns for its life.
class SPAR_API zThread::AccurateTimer {
public:
    AccurateTimer();
    ~AccurateTimer();
    AccurateTimer(const AccurateTimer&) = delete;
    AccurateTimer& operator=(const AccurateTimer&) = delete;

    /// Sleeps until zTime::MicroNow reaches `time` and gives the time on waking; at once when it
    /// has passed.
    long long MicroSleepUntil(long long time);

private:
    zSpinLead fLead;
    long fSlackBefore;
};
