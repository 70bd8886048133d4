#include "tarn/clocks/tnClock.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tarn/clocks/tnClockWatcher.h"

namespace {

tn_time_rec at(long long realTime) {
    tn_time_rec time{};
    time.real_time = realTime;
    return time;
}

/// Notes what it is served, and by which thread; runs `fAction` first.
class Probe : public tnClockWatcher {
public:
    ~Probe() override { Stop(); }
    void ReceiveTime(const tn_time_rec& time) override {
        if (fAction) fAction();
        fTimes.push_back(time.real_time);
        fThread = std::this_thread::get_id();
    }

    std::function<void()> fAction;
    std::vector<long long> fTimes;
    std::thread::id fThread;
};

}  // namespace

TEST(Clock, WithoutWatchersItStillRemembersItsLastRealTime) {
    tnClock clock;
    EXPECT_EQ(clock.GetLastProducedRealTime(), 0);
    clock.ProduceTime(at(1234), true);
    EXPECT_EQ(clock.GetLastProducedRealTime(), 1234);
    clock.ProduceTime(at(-5), false);
    EXPECT_EQ(clock.GetLastProducedRealTime(), -5);
}

TEST(Clock, AWatcherAddedTwiceIsServedOnceAndRemovedAtOnce) {
    tnClock clock;
    Probe probe;
    clock.AddWatcher(&probe);
    clock.AddWatcher(&probe);
    clock.ProduceTime(at(1), false);
    EXPECT_EQ(probe.fTimes, std::vector<long long>{1});
    clock.RemoveWatcher(&probe);
    clock.ProduceTime(at(2), false);
    EXPECT_EQ(probe.fTimes, std::vector<long long>{1});
}

TEST(Clock, RemovingAnUnknownWatcherIsNoError) {
    tnClock clock;
    Probe known;
    Probe unknown;
    clock.RemoveWatcher(&unknown);
    clock.AddWatcher(&known);
    clock.RemoveWatcher(&unknown);
    clock.RemoveWatcher(nullptr);
    clock.ProduceTime(at(1), false);
    EXPECT_EQ(known.fTimes.size(), 1u);
}

TEST(Clock, WatchersAreServedInTheOrderOfTheirFirstAdding) {
    tnClock clock;
    Probe probes[3];
    std::string order;
    for (int i = 0; i < 3; ++i) {
        probes[i].fAction = [&order, i] { order += static_cast<char>('a' + i); };
    }
    for (int i : {1, 0, 2, 1}) clock.AddWatcher(&probes[i]);
    clock.ProduceTime(at(1), false);
    EXPECT_EQ(order, "bac");
    // One that leaves and comes back is the last.
    clock.RemoveWatcher(&probes[1]);
    clock.AddWatcher(&probes[1]);
    clock.ProduceTime(at(2), false);
    EXPECT_EQ(order, "bacacb");
}

TEST(Clock, WithoutQueueingWatchersAreServedOnTheProducersThread) {
    tnClock clock;
    Probe probe;
    clock.AddWatcher(&probe);
    clock.ProduceTime(at(1), false);
    EXPECT_EQ(probe.fThread, std::this_thread::get_id());
}

TEST(Clock, AWatcherMayAddAnotherWhileItIsServed) {
    tnClock clock;
    Probe first;
    Probe second;
    first.fAction = [&] { clock.AddWatcher(&second); };
    clock.AddWatcher(&first);
    clock.ProduceTime(at(7), false);
    EXPECT_EQ(second.fTimes, std::vector<long long>{7}) << "the walk goes on to the new end";
}

TEST(Clock, TheProducersLastRealTimeIsSeenByTheWatcherThatItServes) {
    tnClock clock;
    Probe probe;
    long long seen = 0;
    probe.fAction = [&] { seen = clock.GetLastProducedRealTime(); };
    clock.AddWatcher(&probe);
    clock.ProduceTime(at(99), false);
    EXPECT_EQ(seen, 99);
}

TEST(Clock, AClockThatDoesNotTickCannotTellTheTime) {
    const tnClock clock;
    tn_time_rec time = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(clock.GetTime(time), -1012);
    EXPECT_EQ(time.real_time, 0);
    EXPECT_EQ(time.media_time, 0);
    EXPECT_EQ(time.tick_count, 0);
    EXPECT_EQ(time.clock_id, clock.ClockID());
    EXPECT_EQ(time.nominal_time, 4) << "not its to clear";
    EXPECT_EQ(time.time_kind, 6u);
    EXPECT_EQ(clock.GetTickRate(), 0);
}

TEST(Clock, EachClockHasAnIdOfItsOwn) {
    std::set<unsigned int> ids;
    for (int i = 0; i < 100; ++i) {
        const tnClock clock;
        ids.insert(clock.ClockID());
        EXPECT_EQ(clock.ClockID(), clock.ClockID());
    }
    EXPECT_EQ(ids.size(), 100u);
}

TEST(Clock, ItIsCountedAndDiesWithItsLastReference) {
    static int deaths;
    deaths = 0;
    class Mortal : public tnClock {
    public:
        ~Mortal() override { ++deaths; }
    };
    auto* clock = new Mortal;
    EXPECT_EQ(clock->AddRef(), 2);
    EXPECT_EQ(clock->Release(), 1);
    EXPECT_EQ(deaths, 0);
    EXPECT_EQ(clock->Release(), 0);
    EXPECT_EQ(deaths, 1);
}

TEST(Clock, InterfacesAreAskedForByName) {
    tnClock clock;
    void* found = nullptr;
    EXPECT_EQ(clock.QueryInterface("xIUnknown", &found), 0);
    EXPECT_NE(found, nullptr);
    EXPECT_EQ(clock.Release(), 1) << "it came with a reference";
    EXPECT_EQ(clock.QueryInterface("no such interface", &found), -31);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(clock.QueryInterface("xIUnknown", nullptr), -22);
}

TEST(Clock, ARemovedWatcherIsNotTouchedAgain) {
    // The watchers die right after they are removed, while another thread produces without a break.
    tnClock clock;
    std::atomic<bool> done{false};
    std::thread producer([&] {
        for (long long n = 0; !done; ++n) clock.ProduceTime(at(n), n % 2 == 0);
    });
    for (int i = 0; i < 200; ++i) {
        auto probe = std::make_unique<Probe>();
        clock.AddWatcher(probe.get());
        std::this_thread::yield();
        clock.RemoveWatcher(probe.get());
    }
    done = true;
    producer.join();
}
