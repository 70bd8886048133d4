#include "spar/zCriticalRW.h"

#include <algorithm>

zCriticalRW::Readers::iterator zCriticalRW::own_hold() {
    return std::find_if(fReaders.begin(), fReaders.end(),
                        [](const Hold& hold) { return hold.thread == std::this_thread::get_id(); });
}

void zCriticalRW::LockRead(bool) {
    zMutexLock held(fMutex);
    if (fWriterDepth > 0 && fWriter == std::this_thread::get_id()) {
        ++fWriterDepth;
        return;
    }
    // A thread that waited here behind a writer while it reads already would wait for itself.
    if (const auto mine = own_hold(); mine != fReaders.end()) {
        ++mine->depth;
        return;
    }
    while (fWriterDepth > 0 || fWaitingWriters > 0) fReadersMayGo.Wait(fMutex);
    fReaders.push_back({std::this_thread::get_id(), 1});
}

void zCriticalRW::UnlockRead() {
    zMutexLock held(fMutex);
    if (fWriterDepth > 0 && fWriter == std::this_thread::get_id()) {
        leave_write();
        return;
    }
    const auto mine = own_hold();
    if (mine == fReaders.end() || --mine->depth > 0) return;
    fReaders.erase(mine);
    if (fReaders.empty()) fWriterMayGo.WakeOne();
}

void zCriticalRW::LockWrite(bool) {
    zMutexLock held(fMutex);
    if (fWriterDepth > 0 && fWriter == std::this_thread::get_id()) {
        ++fWriterDepth;
        return;
    }
    ++fWaitingWriters;
    while (fWriterDepth > 0 || !fReaders.empty()) fWriterMayGo.Wait(fMutex);
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
