#pragma once

#include <thread>
#include <vector>

#include "spar/export.h"
#include "spar/threadSafety.h"
#include "spar/zMutex.h"

/// A lock that any number of readers share and a writer has alone.
///
/// A waiting writer goes before readers that come after it, so that a steady stream of readers
/// cannot hold it off for ever. A thread that reads already may read again past a waiting writer,
/// and the writer may itself read or write again; each hold is given back once. A reader that asks
/// to write waits for itself: give the read up first.
///
/// The flag of both Lock operations changes nothing.
class SPAR_API SPAR_CAPABILITY("reader-writer lock") zCriticalRW {
public:
    zCriticalRW() = default;
    zCriticalRW(const zCriticalRW&) = delete;
    zCriticalRW& operator=(const zCriticalRW&) = delete;

    void LockRead(bool) SPAR_ACQUIRE_SHARED() SPAR_NO_THREAD_SAFETY_ANALYSIS;
    void UnlockRead() SPAR_RELEASE_SHARED() SPAR_NO_THREAD_SAFETY_ANALYSIS;
    void LockWrite(bool) SPAR_ACQUIRE() SPAR_NO_THREAD_SAFETY_ANALYSIS;
    void UnlockWrite() SPAR_RELEASE() SPAR_NO_THREAD_SAFETY_ANALYSIS;

private:
    struct Hold {
        std::thread::id thread;
        int depth;
    };
    using Readers = std::vector<Hold>;

    Readers::iterator own_hold() SPAR_REQUIRES(fMutex);
    void leave_write() SPAR_REQUIRES(fMutex);

    zMutex fMutex;
    zCondition fReadersMayGo;
    zCondition fWriterMayGo;
    // Few at a time, so a walk is quicker than a map. Kept here and not by each thread: what a
    // thread keeps of its own is gone while the process still runs its last destructors.
    Readers fReaders SPAR_GUARDED_BY(fMutex);
    int fWaitingWriters SPAR_GUARDED_BY(fMutex) = 0;
    int fWriterDepth SPAR_GUARDED_BY(fMutex) = 0;
    std::thread::id fWriter SPAR_GUARDED_BY(fMutex);
};

/// Shares a zCriticalRW for a scope.
class SPAR_SCOPED_CAPABILITY zReadLock {
public:
    explicit zReadLock(zCriticalRW& lock) SPAR_ACQUIRE_SHARED(lock) : fLock(lock) {
        fLock.LockRead(false);
    }
    ~zReadLock() SPAR_RELEASE() SPAR_NO_THREAD_SAFETY_ANALYSIS { fLock.UnlockRead(); }
    zReadLock(const zReadLock&) = delete;
    zReadLock& operator=(const zReadLock&) = delete;

private:
    zCriticalRW& fLock;
};

/// Has a zCriticalRW alone for a scope.
class SPAR_SCOPED_CAPABILITY zWriteLock {
public:
    explicit zWriteLock(zCriticalRW& lock) SPAR_ACQUIRE(lock) : fLock(lock) {
        fLock.LockWrite(false);
    }
    ~zWriteLock() SPAR_RELEASE() { fLock.UnlockWrite(); }
    zWriteLock(const zWriteLock&) = delete;
    zWriteLock& operator=(const zWriteLock&) = delete;

private:
    zCriticalRW& fLock;
};
