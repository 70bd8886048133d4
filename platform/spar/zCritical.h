#pragma once

#include <mutex>

#include "spar/export.h"
#include "spar/threadSafety.h"

/// A recursive lock: the thread that holds it may take it again, and gives it back as often.
///
/// For a lock that is not taken twice by one thread, zMutex says so and is checked for it.
class SPAR_API SPAR_CAPABILITY("critical") zCritical {
public:
    /// A new lock that the caller owns. `kind` is 1, a recursive lock; there is no other.
    static zCritical* Factory(char kind);

    zCritical() = default;
    zCritical(const zCritical&) = delete;
    zCritical& operator=(const zCritical&) = delete;
    virtual ~zCritical();

    virtual void Lock() SPAR_ACQUIRE() { fMutex.lock(); }
    virtual void Unlock() SPAR_RELEASE() { fMutex.unlock(); }

private:
    std::recursive_mutex fMutex;
};

/// Holds a zCritical for a scope.
class SPAR_SCOPED_CAPABILITY zCriticalLock {
public:
    explicit zCriticalLock(zCritical& critical) SPAR_ACQUIRE(critical) : fCritical(critical) {
        fCritical.Lock();
    }
    ~zCriticalLock() SPAR_RELEASE() { fCritical.Unlock(); }
    zCriticalLock(const zCriticalLock&) = delete;
    zCriticalLock& operator=(const zCriticalLock&) = delete;

private:
    zCritical& fCritical;
};
