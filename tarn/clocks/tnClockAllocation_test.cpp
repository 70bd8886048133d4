// A tick on its way allocates nothing: counted by an operator new of our own.
#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <thread>
#include <vector>

#include "tarn/clocks/tnClockWatcher.h"
#include "tarn/clocks/tnSystemClockInternals.h"
#include "tarn/clocks/tnSystemClockInternals_mac.h"

namespace {
std::atomic<long long> gAllocations{0};
}

// Not inlined: a compiler that sees one of the pair alone takes the two for a mismatch.
__attribute__((noinline)) void* operator new(std::size_t size) {
    ++gAllocations;
    if (void* block = std::malloc(size)) return block;
    throw std::bad_alloc();
}
__attribute__((noinline)) void operator delete(void* block) noexcept {
    std::free(block);
}
__attribute__((noinline)) void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

namespace {

class Counter : public tnClockWatcher {
public:
    ~Counter() override { Stop(); }
    void ReceiveTime(const tn_time_rec&) override { ++fTicks; }
    void Await(int ticks) const {
        while (fTicks < ticks) std::this_thread::yield();
    }

private:
    std::atomic<int> fTicks{0};
};

}  // namespace

TEST(ClockAllocation, ATickFromProducerToReceiverAllocatesNothing) {
    tnClock clock;
    Counter single;
    Counter multiple;
    single.Start(0, nullptr, false);
    multiple.Start(0, nullptr, true);
    clock.AddWatcher(&single);
    clock.AddWatcher(&multiple);
    const long long before = gAllocations;
    for (int n = 1; n <= 100; ++n) {
        clock.ProduceTime({}, true);
        single.Await(n);
        multiple.Await(n);
        clock.ProduceTime({}, false);
        single.Await(n);
    }
    EXPECT_EQ(gAllocations, before);
    clock.RemoveWatcher(&single);
    clock.RemoveWatcher(&multiple);
}

namespace {

/// A clock over one of the loops, whichever the factory would give.
template <class Internals>
class LoopClock : public tnClock {
public:
    explicit LoopClock(tnClock::clock_rate_accuracy accuracy) : fInternals(*this, 500, accuracy) {}
    ~LoopClock() override { fInternals.StopTicking(); }
    Internals fInternals;
};

// On the machine's own time, for some ticks.
template <class Internals>
void expect_no_allocation(tnClock::clock_rate_accuracy accuracy) {
    LoopClock<Internals> clock(accuracy);
    Counter counter;
    counter.Start(0, nullptr, true);
    clock.AddWatcher(&counter);
    clock.fInternals.StartTicking(0, nullptr, 0);
    counter.Await(2);
    const long long before = gAllocations;
    counter.Await(12);
    EXPECT_EQ(gAllocations, before);
    clock.fInternals.StopTicking();
    clock.RemoveWatcher(&counter);
}

}  // namespace

TEST(ClockAllocation, ATickingLoopAllocatesNothing) {
    expect_no_allocation<tnSystemClockInternals>(tnClock::clock_rate_scac);
    expect_no_allocation<tnSystemClockInternals>(tnClock::clock_rate_asnc);
    expect_no_allocation<tnSystemClockInternals_mac>(tnClock::clock_rate_scac);
}
