// Watchers and clocks that come and go while ticks are under way, on the machine's own time. What
// is looked at: nothing hangs, and nothing is delivered after it was called off. TARN_SOAK_ROUNDS
// makes it longer.
#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "tarn/clocks/tnClockWatcher.h"
#include "tarn/clocks/tnSystemClock.h"
#include "tarn/clocks/tnSystemClockInternals_mac.h"

namespace {

int rounds() {
    const char* wish = std::getenv("TARN_SOAK_ROUNDS");
    return wish ? std::atoi(wish) : 40;
}

/// Complains about a tick that comes when it should not.
class Guest : public tnClockWatcher {
public:
    ~Guest() override {
        Stop();
        fGone = true;
    }
    void ReceiveTime(const tn_time_rec& time) override {
        EXPECT_FALSE(fGone);
        EXPECT_EQ(time.time_kind, 6u);
        ++fTicks;
    }
    /// Stop, and let nothing come after it.
    void StopForGood() {
        Stop();
        fGone = true;
    }

    std::atomic<bool> fGone{false};
    std::atomic<int> fTicks{0};
};

/// A clock over the Mach loop, which the factory gives on macOS alone.
class MachClock : public tnClock {
public:
    explicit MachClock(double rate) : fInternals(*this, rate, tnClock::clock_rate_scac) {}
    ~MachClock() override { fInternals.StopTicking(); }
    tnSystemClockInternals_mac fInternals;
};

void idle(std::mt19937& random) {
    const unsigned int spins = random() % 200;
    for (unsigned int i = 0; i < spins; ++i) std::this_thread::yield();
}

/// One guest's visit: it starts, joins, stays a while, and leaves in one of the allowed orders.
void visit(tnClock& clock, std::mt19937& random) {
    auto guest = std::make_unique<Guest>();
    const bool early = random() % 2 == 0;
    if (early) clock.AddWatcher(guest.get());
    guest->Start(0, nullptr, random() % 2 == 0);
    if (!early) clock.AddWatcher(guest.get());
    idle(random);
    switch (random() % 4) {
        case 0:  // the usual way
            clock.RemoveWatcher(guest.get());
            guest->StopForGood();
            break;
        case 1:  // stopped while the clock still signals it
            guest->StopForGood();
            idle(random);
            clock.RemoveWatcher(guest.get());
            break;
        case 2:  // another life in between
            guest->Stop();
            guest->Start(0, nullptr, random() % 2 == 0);
            clock.RemoveWatcher(guest.get());
            break;
        default:  // its destructor stops it
            clock.RemoveWatcher(guest.get());
            break;
    }
}

void visit_all(const std::vector<tnClock*>& clocks, unsigned int seed) {
    std::mt19937 random(seed);
    for (int i = 0; i < rounds(); ++i) visit(*clocks[random() % clocks.size()], random);
}

/// What a host does to a clock while it ticks.
void fiddle(tnSystemClock& clock, unsigned int seed) {
    std::mt19937 random(seed);
    for (int i = 0; i < rounds(); ++i) {
        tn_time_rec time{};
        switch (random() % 7) {
            case 0:
                clock.ChangeRate(500 + random() % 1000);
                break;
            case 1:
                clock.RewindMediaTime(random() % 1000);
                break;
            case 2:
                clock.PauseMediaTime();
                break;
            case 3:
                clock.Debug_ToggleMediaTimeAdvancing();
                break;
            case 4:
                clock.GetTime(time);
                break;
            case 5:
                clock.GetLastProducedRealTime();
                break;
            default:
                clock.StopTicking();
                clock.StartTicking(random() % 1000, nullptr, 0);
        }
        idle(random);
    }
}

}  // namespace

TEST(ClocksUnderLoad, WatchersStartStopJoinAndLeave) {
    tnSystemClock plain(1000, tnClock::clock_rate_scac);
    tnSystemClock precise(1000, tnClock::clock_rate_asnc);
    MachClock mach(1000);
    plain.StartTicking(0, nullptr, 0);
    precise.StartTicking(0, nullptr, 0);
    mach.fInternals.StartTicking(0, nullptr, 0);

    const std::vector<tnClock*> clocks = {&plain, &precise, &mach};
    std::vector<std::thread> hosts;
    for (unsigned int seed = 1; seed <= 3; ++seed) {
        hosts.emplace_back([&clocks, seed] { visit_all(clocks, seed); });
    }
    hosts.emplace_back([&plain] { fiddle(plain, 11); });
    hosts.emplace_back([&precise] { fiddle(precise, 12); });
    for (std::thread& host : hosts) host.join();
}

TEST(ClocksUnderLoad, AClockMayEndAtAnyMoment) {
    std::mt19937 random(21);
    for (int i = 0; i < rounds(); ++i) {
        Guest guests[2];
        for (Guest& guest : guests) guest.Start(0, nullptr, random() % 2 == 0);
        const auto accuracy =
            random() % 2 == 0 ? tnClock::clock_rate_scac : tnClock::clock_rate_asnc;
        auto clock = std::make_unique<tnSystemClock>(2000, accuracy);
        for (Guest& guest : guests) clock->AddWatcher(&guest);
        clock->StartTicking(0, nullptr, 0);
        idle(random);
        if (random() % 2 == 0) clock->StopTicking();
        clock.reset();
        for (Guest& guest : guests) guest.StopForGood();
    }
}

TEST(ClocksUnderLoad, AWatcherMayEndAtAnyMoment) {
    tnSystemClock clock(2000, tnClock::clock_rate_scac);
    clock.StartTicking(0, nullptr, 0);
    std::mt19937 random(31);
    for (int i = 0; i < rounds(); ++i) {
        std::vector<std::unique_ptr<Guest>> guests(4);
        for (auto& guest : guests) {
            guest = std::make_unique<Guest>();
            clock.AddWatcher(guest.get());
            guest->Start(0, nullptr, random() % 2 == 0);
        }
        idle(random);
        for (auto& guest : guests) {
            clock.RemoveWatcher(guest.get());
            guest.reset();
        }
    }
}
