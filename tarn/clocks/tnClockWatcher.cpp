#include "tarn/clocks/tnClockWatcher.h"

#include "spar/zCritical.h"
#include "spar/zSignal.h"
#include "spar/zThread.h"

namespace {

constexpr char kRecursive = 1;
constexpr char kThreadClass = 4;
constexpr char kDefaultPriority = 4;
constexpr long long kEmpty = -1;
constexpr int kNoWish = -1013;

// On a watcher's thread, that watcher.
thread_local const tnClockWatcher* gWatcherOfThread = nullptr;

/// The slot with the lower number; of two that are empty the second, which is filled first.
int older_slot(const long long (&sequence)[2]) {
    return sequence[0] >= sequence[1] ? 1 : 0;
}

}  // namespace

tnClockWatcher::tnClockWatcher()
    : fSignal(zSignal::Factory()), fCritical(zCritical::Factory(kRecursive)) {}

tnClockWatcher::~tnClockWatcher() {
    // Too late for a derived class, whose ReceiveTime is gone by now: see the header.
    tnClockWatcher::Stop();
}

void tnClockWatcher::Start(char priority, const char* name, bool multipleTickReceiver) {
    // A receiver that stopped itself may still be at its last tick.
    if (!running()) end_thread();
    fRunning.store(true, std::memory_order_relaxed);
    {
        zCriticalLock lock(*fCritical);
        fMultipleTickReceiver = multipleTickReceiver;
        fSlotSequence[0] = kEmpty;
        fSlotSequence[1] = kEmpty;
    }
    fThread.reset(zThread::Factory(name ? name : "clock watcher", this, kThreadClass,
                                   priority ? priority : kDefaultPriority));
    // No thread to be had: not running, rather than running for ever with nobody to receive.
    if (!fThread) fRunning.store(false, std::memory_order_relaxed);
}

void tnClockWatcher::Stop() {
    // Cleared before the signal, so that the thread that it wakes sees it.
    const bool ran = fRunning.exchange(false, std::memory_order_relaxed);
    // The thread itself is awake and looks after its tick. It touches nothing else: on the first
    // tick Start may still be at storing the handle.
    if (gWatcherOfThread == this) return;
    if (ran) fSignal->Raise();
    end_thread();
}

void tnClockWatcher::end_thread() {
    if (!fThread) return;
    fThread->Join();
    fThread.reset();
}

bool tnClockWatcher::IsRunning() const {
    return running();
}

int tnClockWatcher::GetDesiredTickRate(int*) const {
    return kNoWish;
}

void tnClockWatcher::SignalTime(const tn_time_rec& time, bool queued) {
    // The caller may write to its record while the tick is still on its way.
    const tn_time_rec copy = time;
    if (!queued) {
        ReceiveTime(copy);
        return;
    }
    {
        zCriticalLock lock(*fCritical);
        if (fMultipleTickReceiver) {
            store_multiple(copy);
        } else {
            store_single(copy);
        }
    }
    fSignal->Raise();
}

void tnClockWatcher::store_single(const tn_time_rec& time) {
    fSingleTime = time;
    fSlotSequence[0] = fNextSequence++;
}

void tnClockWatcher::store_multiple(const tn_time_rec& time) {
    const int slot = older_slot(fSlotSequence);
    fSlotSequence[slot] = fNextSequence++;
    fSlots[slot] = time;
}

bool tnClockWatcher::receives_multiple() const {
    zCriticalLock lock(*fCritical);
    return fMultipleTickReceiver;
}

int tnClockWatcher::Main(int, const char**) {
    gWatcherOfThread = this;
    if (receives_multiple()) {
        multiple_tick_receiver_run_loop();
    } else {
        single_tick_receiver_run_loop();
    }
    gWatcherOfThread = nullptr;
    return 0;
}

void tnClockWatcher::single_tick_receiver_run_loop() {
    long long lastSeq = kEmpty;
    while (running()) {
        fSignal->Wait();
        if (!running()) break;
        long long seq;
        tn_time_rec time;
        {
            zCriticalLock lock(*fCritical);
            seq = fSlotSequence[0];
            time = fSingleTime;
        }
        if (seq <= lastSeq) continue;
        ReceiveTime(time);
        lastSeq = seq;
    }
}

// One tick a wake-up, the oldest not yet delivered. A receiver that was busy for two ticks is
// therefore one tick behind from then on; it catches up when a wake-up brings no tick of its own.
void tnClockWatcher::multiple_tick_receiver_run_loop() {
    long long lastSeq = kEmpty;
    while (running()) {
        fSignal->Wait();
        if (!running()) break;
        long long seq;
        tn_time_rec time;
        {
            zCriticalLock lock(*fCritical);
            int slot = older_slot(fSlotSequence);
            if (fSlotSequence[slot] == lastSeq) slot = 1 - slot;
            seq = fSlotSequence[slot];
            time = fSlots[slot];
        }
        if (seq <= lastSeq) continue;
        ReceiveTime(time);
        lastSeq = seq;
    }
}
