#include "tarn/clocks/tnClock.h"

#include "spar/zCritical.h"
#include "spar/zIDGenerator.h"
#include "spar/zList.h"
#include "tarn/clocks/tnClockWatcher.h"

namespace {

constexpr char kClockIDKind = 'x';
constexpr char kRecursive = 1;
constexpr int kCannotTellTime = -1012;

bool contains(const zList<tnClockWatcher*>& watchers, const tnClockWatcher* wanted) {
    for (const tnClockWatcher* watcher : watchers) {
        if (watcher == wanted) return true;
    }
    return false;
}

}  // namespace

tnClock::tnClock()
    : fWatchers(std::make_unique<zList<tnClockWatcher*>>()),
      fCritical(zCritical::Factory(kRecursive)),
      fClockID(static_cast<unsigned int>(zIDGenerator::Generate(kClockIDKind))) {}

tnClock::~tnClock() = default;

int tnClock::QueryInterface(const char* name, void** object) {
    return Concrete_QueryInterface(name, object);
}

int tnClock::AddRef() {
    return Concrete_AddRef();
}

int tnClock::Release() {
    return Concrete_Release();
}

void tnClock::ProduceTime(const tn_time_rec& time, bool queued) {
    zCriticalLock lock(*fCritical);
    fLastProducedRealTime.store(time.real_time, std::memory_order_relaxed);
    for (tnClockWatcher* watcher : *fWatchers) watcher->SignalTime(time, queued);
}

int tnClock::GetTime(tn_time_rec& time) const {
    time.real_time = 0;
    time.media_time = 0;
    time.tick_count = 0;
    time.clock_id = fClockID;
    return kCannotTellTime;
}

int tnClock::GetTickRate() const {
    return 0;
}

void tnClock::AddWatcher(tnClockWatcher* watcher) {
    zCriticalLock lock(*fCritical);
    if (!contains(*fWatchers, watcher)) fWatchers->Append(watcher);
}

void tnClock::RemoveWatcher(tnClockWatcher* watcher) {
    zCriticalLock lock(*fCritical);
    fWatchers->Remove(watcher);
}

unsigned int tnClock::ClockID() const {
    return fClockID;
}

long long tnClock::GetLastProducedRealTime() const {
    return fLastProducedRealTime.load(std::memory_order_relaxed);
}
