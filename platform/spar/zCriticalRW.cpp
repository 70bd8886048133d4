#include "spar/zCriticalRW.h"

#include <algorithm>
#include <vector>

namespace {

struct Hold {
    const zCriticalRW* lock;
    int depth;
};

// The locks that this thread reads. Few at a time, so a walk is quicker than a map.
thread_local std::vector<Hold> gReading;

Hold* reading(const zCriticalRW* lock) {
    const auto found = std::find_if(gReading.begin(), gReading.end(),
                                    [&](const Hold& hold) { return hold.lock == lock; });
    return found == gReading.end() ? nullptr : &*found;
}

void forget(const zCriticalRW* lock) {
    std::erase_if(gReading, [&](const Hold& hold) { return hold.lock == lock; });
}

}  // namespace

void zCriticalRW::LockRead(bool) {
    zMutexLock held(fMutex);
    if (fWriterDepth > 0 && fWriter == std::this_thread::get_id()) {
        ++fWriterDepth;
        return;
    }
    // A thread that waited here behind a writer while it reads already would wait for itself.
    if (Hold* mine = reading(this)) {
        ++mine->depth;
        return;
    }
    gReading.push_back({this, 1});
    while (fWriterDepth > 0 || fWaitingWriters > 0) fReadersMayGo.Wait(fMutex);
    ++fReaders;
}

void zCriticalRW::UnlockRead() {
    zMutexLock held(fMutex);
    if (fWriterDepth > 0 && fWriter == std::this_thread::get_id()) {
        leave_write();
        return;
    }
    Hold* mine = reading(this);
    if (mine == nullptr || --mine->depth > 0) return;
    forget(this);
    if (--fReaders == 0) fWriterMayGo.WakeOne();
}

void zCriticalRW::LockWrite(bool) {
    zMutexLock held(fMutex);
    if (fWriterDepth > 0 && fWriter == std::this_thread::get_id()) {
        ++fWriterDepth;
        return;
    }
    ++fWaitingWriters;
    while (fWriterDepth > 0 || fReaders > 0) fWriterMayGo.Wait(fMutex);
    --fWaitingWriters;
    fWriter = std::this_thread::get_id();
    fWriterDepth = 1;
}

void zCriticalRW::UnlockWrite() {
    zMutexLock held(fMutex);
    leave_write();
}

void zCriticalRW::leave_write() {
    if (--fWriterDepth > 0) return;
    fWriter = std::thread::id();
    if (fWaitingWriters > 0) {
        fWriterMayGo.WakeOne();
        return;
    }
    fReadersMayGo.WakeAll();
}
