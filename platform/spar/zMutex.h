#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "spar/threadSafety.h"

/// A plain lock whose contract the compiler checks. Not recursive.
class SPAR_CAPABILITY("mutex") zMutex {
public:
    zMutex() = default;
    zMutex(const zMutex&) = delete;
    zMutex& operator=(const zMutex&) = delete;

    void Lock() SPAR_ACQUIRE() { fMutex.lock(); }
    bool TryLock() SPAR_TRY_ACQUIRE(true) { return fMutex.try_lock(); }
    void Unlock() SPAR_RELEASE() { fMutex.unlock(); }

private:
    friend class zCondition;
    std::mutex fMutex;
};

/// Holds a zMutex for a scope.
class SPAR_SCOPED_CAPABILITY zMutexLock {
public:
    explicit zMutexLock(zMutex& mutex) SPAR_ACQUIRE(mutex) : fMutex(mutex) { fMutex.Lock(); }
    ~zMutexLock() SPAR_RELEASE() { fMutex.Unlock(); }
    zMutexLock(const zMutexLock&) = delete;
    zMutexLock& operator=(const zMutexLock&) = delete;

private:
    zMutex& fMutex;
};

/// A condition over a zMutex. Waits may end early: callers loop on what they wait for.
class zCondition {
public:
    void Wait(zMutex& mutex) SPAR_REQUIRES(mutex) {
        std::unique_lock<std::mutex> held(mutex.fMutex, std::adopt_lock);
        fCondition.wait(held);
        held.release();
    }

    /// Waits at most `microseconds`; false when the time was up.
    bool WaitFor(zMutex& mutex, long long microseconds) SPAR_REQUIRES(mutex) {
        std::unique_lock<std::mutex> held(mutex.fMutex, std::adopt_lock);
        const auto status = fCondition.wait_for(held, std::chrono::microseconds(microseconds));
        held.release();
        return status == std::cv_status::no_timeout;
    }

    void WakeOne() { fCondition.notify_one(); }
    void WakeAll() { fCondition.notify_all(); }

private:
    std::condition_variable fCondition;
};
