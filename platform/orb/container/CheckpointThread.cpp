#include "CheckpointThread.h"

#include <algorithm>

#include "spar/zTime.h"

namespace Quillon::Orb {

bool CheckpointThread::Start() {
    constexpr char kOrdinary = 4;
    fThread.reset(zThread::Factory("movie index", this, kOrdinary, 1));
    return fThread != nullptr;
}

void CheckpointThread::Stop() {
    {
        zMutexLock held(fLock);
        fStopping = true;
        fWake.WakeAll();
    }
    if (fThread) fThread->Join();
    fThread.reset();
}

void CheckpointThread::Nudge() {
    zMutexLock held(fLock);
    fNudged = true;
    fWake.WakeAll();
}

int CheckpointThread::Main(int, const char**) {
    try {
        call_until_stopped();
    } catch (...) {
        fClient.OnException();
    }
    return 0;
}

void CheckpointThread::call_until_stopped() {
    long long next = zTime::MicroNow();
    for (;;) {
        const Wake wake = wait(next);
        if (wake == Wake::Stop) return;
        if (wake == Wake::Nudge) {
            fClient.OnNudge();
            continue;
        }
        const long long start = zTime::MicroNow();
        fClient.OnCheckpoint();
        const long long spent = zTime::MicroNow() - start;
        // A tenth of the period is for waking up late.
        next = start + std::max(fPeriod / 2, fPeriod - fPeriod / 10 - 2 * spent);
    }
}

CheckpointThread::Wake CheckpointThread::wait(long long until) {
    zMutexLock held(fLock);
    while (!fStopping) {
        const long long left = until - zTime::MicroNow();
        if (left <= 0) return Wake::Time;
        if (fNudged) {
            fNudged = false;
            return Wake::Nudge;
        }
        fWake.WaitFor(fLock, left);
    }
    return Wake::Stop;
}

}  // namespace Quillon::Orb
