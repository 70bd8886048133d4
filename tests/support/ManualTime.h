#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "mach/machTwin.h"
#include "tarn/clocks/tnTimeSource.h"

/// Time that moves only when a test says so, for one ticking loop at a time.
///
/// Every sleep of the loop is held until the test lets it go by Run. A sleep that is let go moves
/// time to its deadline, or later when the test says so; time never moves otherwise. While one
/// lives, new loops take all their time and sleep from it, those over the Mach calls too.
class ManualTime : public tnTimeSource, public machTwin::Source {
public:
    explicit ManualTime(long long micros) : fNowNs(static_cast<uint64_t>(micros) * 1000) {
        tnTimeSource::SetCurrent(this);
        machTwin::SetSource(this);
    }
    ~ManualTime() override {
        tnTimeSource::SetCurrent(nullptr);
        machTwin::SetSource(nullptr);
        machTwin::SetTimebase(1, 1);
    }
    ManualTime(const ManualTime&) = delete;
    ManualTime& operator=(const ManualTime&) = delete;

    /// How many microseconds after its deadline the next sleep ends.
    void WakeLate(long long micros) {
        std::lock_guard lock(fMutex);
        fLateNs = static_cast<uint64_t>(micros) * 1000;
    }

    /// Called with the time, without a lock, whenever the loop reads it.
    void OnRead(std::function<void()> hook) {
        std::lock_guard lock(fMutex);
        fOnRead = std::move(hook);
    }

    /// Waits until the loop sleeps.
    void AwaitSleep() {
        std::unique_lock lock(fMutex);
        fChanged.wait(lock, [this] { return fAsleep; });
    }

    /// Waits until the loop sleeps or `so` holds.
    void AwaitSleepOr(const std::function<bool()>& so) {
        while (!so() && !is_asleep()) std::this_thread::yield();
    }

    /// Lets `sleeps` sleeps end, one after the other, and waits until the loop sleeps again.
    void Run(int sleeps) {
        std::unique_lock lock(fMutex);
        fChanged.wait(lock, [this] { return fAsleep; });
        fAllowed += sleeps;
        fChanged.notify_all();
        fChanged.wait(lock, [this] { return fAsleep && fAllowed == 0; });
    }

    /// Lets the sleep that the loop is in end, and does not wait for the next.
    void LetGo() {
        {
            std::lock_guard lock(fMutex);
            ++fAllowed;
        }
        fChanged.notify_all();
        while (is_asleep()) std::this_thread::yield();
    }

    /// Calls `stop`, which waits for the loop, and ends the sleep that the loop is in as soon as
    /// `stopping` says that it has been told.
    void StopWith(const std::function<void()>& stop, const std::function<bool()>& stopping) {
        std::thread stopper(stop);
        while (!stopping()) std::this_thread::yield();
        {
            std::lock_guard lock(fMutex);
            fReleased = true;
        }
        fChanged.notify_all();
        stopper.join();
        std::lock_guard lock(fMutex);
        fReleased = false;
    }

    /// The deadlines that the loop has slept to, in nanoseconds, the one that it sleeps to
    /// included.
    std::vector<uint64_t> Sleeps() {
        std::lock_guard lock(fMutex);
        return fSleeps;
    }

    /// How the loop sleeps.
    enum class Sleep { kPlain, kPrecise, kTimer, kMach };
    /// How it slept last, or sleeps now.
    Sleep LastSleep() {
        std::lock_guard lock(fMutex);
        return fLastSleep;
    }

    /// While no loop sleeps.
    void AdvanceTo(long long micros) {
        std::lock_guard lock(fMutex);
        fNowNs = static_cast<uint64_t>(micros) * 1000;
    }

    long long Now() {
        std::lock_guard lock(fMutex);
        return static_cast<long long>(fNowNs / 1000);
    }

    // tnTimeSource
    long long MicroNow() override {
        read_hook();
        return Now();
    }
    void MicroSleepUntil(long long time, bool precise) override {
        sleep(time, precise ? Sleep::kPrecise : Sleep::kPlain);
    }
    long long MicroSleepUntil(zThread::AccurateTimer&, long long time) override {
        sleep(time, Sleep::kTimer);
        return Now();
    }

    // machTwin::Source
    uint64_t NowNs() override {
        std::lock_guard lock(fMutex);
        return fNowNs;
    }
    void WaitUntilNs(uint64_t deadline) override { sleep_ns(deadline, Sleep::kMach); }

private:
    void sleep_ns(uint64_t deadline, Sleep kind) {
        std::unique_lock lock(fMutex);
        fLastSleep = kind;
        fSleeps.push_back(deadline);
        fAsleep = true;
        fChanged.notify_all();
        fChanged.wait(lock, [this] { return fAllowed > 0 || fReleased; });
        fAsleep = false;
        if (fReleased) return;
        --fAllowed;
        if (deadline + fLateNs > fNowNs) fNowNs = deadline + fLateNs;
        fLateNs = 0;
    }

    bool is_asleep() {
        std::lock_guard lock(fMutex);
        return fAsleep;
    }

    void sleep(long long time, Sleep kind) {
        sleep_ns(time > 0 ? static_cast<uint64_t>(time) * 1000 : 0, kind);
    }

    void read_hook() {
        std::function<void()> hook;
        {
            std::lock_guard lock(fMutex);
            hook = fOnRead;
        }
        if (hook) hook();
    }

    std::mutex fMutex;
    std::condition_variable fChanged;
    std::vector<uint64_t> fSleeps;
    std::function<void()> fOnRead;
    uint64_t fNowNs;
    uint64_t fLateNs = 0;
    Sleep fLastSleep = Sleep::kPlain;
    int fAllowed = 0;
    bool fAsleep = false;
    bool fReleased = false;
};
