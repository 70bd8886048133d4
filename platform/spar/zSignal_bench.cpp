// A hand-off from thread to thread and back through zSignal, beside the same on bare futexes and on
// a mutex with a condition.
#include <atomic>
#include <benchmark/benchmark.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include "spar/zMutex.h"
#include "spar/zSignal.h"

namespace {

/// The least that a hand-off can be: one word, one waiter, a wake for every raise.
class BareFutex {
public:
    void Wait() {
        while (fWord.exchange(0, std::memory_order_acquire) == 0)
            syscall(SYS_futex, &fWord, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
    }
    void Raise() {
        fWord.store(1, std::memory_order_release);
        syscall(SYS_futex, &fWord, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    }

private:
    std::atomic<int> fWord{0};
};

class MutexAndCondition {
public:
    void Wait() {
        zMutexLock held(fLock);
        while (!fRaised) fCondition.Wait(fLock);
        fRaised = false;
    }
    void Raise() {
        zMutexLock held(fLock);
        fRaised = true;
        fCondition.WakeOne();
    }

private:
    zMutex fLock;
    zCondition fCondition;
    bool fRaised SPAR_GUARDED_BY(fLock) = false;
};

/// One iteration is there and back: two hand-offs.
template <class Event>
void ping_pong(benchmark::State& state) {
    Event ping, pong;
    std::atomic<bool> stop{false};
    std::thread other([&] {
        while (true) {
            ping.Wait();
            if (stop) return;
            pong.Raise();
        }
    });
    for (auto iteration : state) {
        (void)iteration;
        ping.Raise();
        pong.Wait();
    }
    stop = true;
    ping.Raise();
    other.join();
}

/// Nobody waits: what a producer pays whose consumer is busy, and a consumer who is late.
template <class Event>
void raise_and_take(benchmark::State& state) {
    Event event;
    for (auto iteration : state) {
        (void)iteration;
        event.Raise();
        event.Wait();
    }
}

}  // namespace

BENCHMARK(ping_pong<zSignal>)->UseRealTime();
BENCHMARK(ping_pong<BareFutex>)->UseRealTime();
BENCHMARK(ping_pong<MutexAndCondition>)->UseRealTime();
BENCHMARK(raise_and_take<zSignal>);
BENCHMARK(raise_and_take<BareFutex>);
BENCHMARK(raise_and_take<MutexAndCondition>);
