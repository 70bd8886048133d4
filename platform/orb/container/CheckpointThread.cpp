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

int CheckpointThread::Main(int, const char**) {
    long long next = zTime::MicroNow();
    while (wait(next)) {
        const long long start = zTime::MicroNow();
        fClient.OnCheckpoint();
        const long long spent = zTime::MicroNow() - start;
        // A tenth of the period is for waking up late.
        next = start + std::max(fPeriod / 2, fPeriod - fPeriod / 10 - 2 * spent);
    }
    return 0;
}

bool CheckpointThread::wait(long long until) {
    zMutexLock held(fLock);
    while (!fStopping) {
        const long long left = until - zTime::MicroNow();
        if (left <= 0) return true;
        fWake.WaitFor(fLock, left);
    }
    return false;
}

}  // namespace Quillon::Orb
