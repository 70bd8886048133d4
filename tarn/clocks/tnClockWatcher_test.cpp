#include "tarn/clocks/tnClockWatcher.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "spar/zCritical.h"
#include "spar/zSignal.h"
#include "spar/zThread.h"
#include "tarn/clocks/tnClock.h"

#include "tests/support/ThreadState.h"

/// What a watcher keeps to itself.
struct tnClockWatcherPeek {
    static long long SlotSequence(tnClockWatcher& watcher, int slot) {
        zCriticalLock lock(*watcher.fCritical);
        return watcher.fSlotSequence[slot];
    }
    static long long SlotTick(tnClockWatcher& watcher, int slot) {
        zCriticalLock lock(*watcher.fCritical);
        return watcher.fSlots[slot].tick_count;
    }
    static long long NextSequence(tnClockWatcher& watcher) {
        zCriticalLock lock(*watcher.fCritical);
        return watcher.fNextSequence;
    }
    /// Calls `hook` when the watcher's lock is next asked for, before it is taken.
    static void BeforeNextLock(tnClockWatcher& watcher, std::function<void()> hook) {
        class Hooked : public zCritical {
        public:
            void Lock() override SPAR_ACQUIRE() {
                if (fArmed.exchange(false)) fHook();
                zCritical::Lock();
            }
            std::atomic<bool> fArmed{true};
            std::function<void()> fHook;
        };
        auto critical = std::make_unique<Hooked>();
        critical->fHook = std::move(hook);
        watcher.fCritical = std::move(critical);
    }
    /// A wake-up that brings no tick.
    static void Wake(tnClockWatcher& watcher) { watcher.fSignal->Raise(); }
};

namespace {

using Peek = tnClockWatcherPeek;
using Ticks = std::vector<long long>;

tn_time_rec tick(long long count) {
    tn_time_rec time{};
    time.tick_count = count;
    return time;
}

/// Notes the ticks that it gets; when it is gated, each call waits to be let through.
class Receiver : public tnClockWatcher {
public:
    ~Receiver() override {
        Open();
        Stop();
    }

    void ReceiveTime(const tn_time_rec& time) override {
        std::unique_lock lock(fMutex);
        fTicks.push_back(time.tick_count);
        fThread = std::this_thread::get_id();
        note_thread();
        fBusy = true;
        fChanged.notify_all();
        fChanged.wait(lock, [this] { return !fGated || fPasses > 0; });
        if (fPasses > 0) --fPasses;
        fBusy = false;
        fChanged.notify_all();
    }

    void Gate() {
        std::lock_guard lock(fMutex);
        fGated = true;
    }
    void Open() {
        std::lock_guard lock(fMutex);
        fGated = false;
        fChanged.notify_all();
    }
    /// Ends the call that is under way.
    void LetThrough() {
        std::lock_guard lock(fMutex);
        ++fPasses;
        fChanged.notify_all();
    }
    void AwaitBusyWith(long long count) {
        std::unique_lock lock(fMutex);
        fChanged.wait(lock, [&] { return fBusy && fTicks.back() == count; });
    }
    void Await(size_t ticks) {
        std::unique_lock lock(fMutex);
        fChanged.wait(lock, [&] { return fTicks.size() >= ticks && !fBusy; });
    }
    Ticks Received() {
        std::lock_guard lock(fMutex);
        return fTicks;
    }

    std::thread::id fThread;
    std::string fName;
    tests::Scheduling fScheduling;

private:
    void note_thread() {
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof name);
        fName = name;
        fScheduling = tests::Scheduling::OfThisThread();
    }

    std::mutex fMutex;
    std::condition_variable fChanged;
    Ticks fTicks;
    bool fGated = false;
    bool fBusy = false;
    int fPasses = 0;
};

void send(tnClockWatcher& watcher, std::initializer_list<long long> counts) {
    for (long long count : counts) watcher.SignalTime(tick(count), true);
}

class BothModes : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(ClockWatcher, BothModes, testing::Bool(),
                         [](const auto& mode) { return mode.param ? "Multiple" : "Single"; });

}  // namespace

TEST(ClockWatcher, StopOnOneThatNeverStartedDoesNothing) {
    Receiver receiver;
    EXPECT_FALSE(receiver.IsRunning());
    receiver.Stop();
    receiver.Stop();
    EXPECT_FALSE(receiver.IsRunning());
}

TEST(ClockWatcher, ItHasNoWishForARate) {
    const Receiver receiver;
    int rate = 77;
    EXPECT_EQ(receiver.GetDesiredTickRate(&rate), -1013);
    EXPECT_EQ(rate, 77);
    EXPECT_EQ(receiver.GetDesiredTickRate(nullptr), -1013);
}

TEST(ClockWatcher, AnUnqueuedTickRunsOnTheCallersThreadAlsoBeforeStart) {
    Receiver receiver;
    receiver.SignalTime(tick(5), false);
    EXPECT_EQ(receiver.Received(), Ticks{5});
    EXPECT_EQ(receiver.fThread, std::this_thread::get_id());
    EXPECT_EQ(Peek::NextSequence(receiver), 0) << "no number is used up";
}

TEST(ClockWatcher, TheReceiverGetsACopyOfTheProducersRecord) {
    static tn_time_rec shared;
    shared = tick(1);
    class Overwriter : public tnClockWatcher {
    public:
        ~Overwriter() override { Stop(); }
        void ReceiveTime(const tn_time_rec& time) override {
            shared.tick_count = 2;
            fSeen = time.tick_count;
        }
        long long fSeen = 0;
    };
    Overwriter watcher;
    watcher.SignalTime(shared, false);
    EXPECT_EQ(watcher.fSeen, 1);
}

TEST_P(BothModes, EveryTickIsDeliveredOnceToAReceiverThatKeepsUp) {
    Receiver receiver;
    receiver.Start(0, nullptr, GetParam());
    Ticks sent;
    for (long long n = 1; n <= 50; ++n) {
        receiver.SignalTime(tick(n), true);
        sent.push_back(n);
        receiver.Await(sent.size());
    }
    EXPECT_EQ(receiver.Received(), sent);
    EXPECT_NE(receiver.fThread, std::this_thread::get_id());
}

TEST_P(BothModes, StopEndsAWaitingThreadWithoutADelivery) {
    Receiver receiver;
    receiver.Start(0, nullptr, GetParam());
    EXPECT_TRUE(receiver.IsRunning());
    receiver.Stop();
    EXPECT_FALSE(receiver.IsRunning());
    receiver.Stop();
    EXPECT_TRUE(receiver.Received().empty());
}

TEST_P(BothModes, ATickThatIsHeldAtStopIsNotDelivered) {
    Receiver receiver;
    receiver.Gate();
    receiver.Start(0, nullptr, GetParam());
    send(receiver, {1});
    receiver.AwaitBusyWith(1);
    send(receiver, {2, 3});
    // Stop waits for the call that is under way.
    std::thread stopper([&] { receiver.Stop(); });
    while (receiver.IsRunning()) std::this_thread::yield();
    receiver.Open();
    stopper.join();
    EXPECT_EQ(receiver.Received(), Ticks{1});
}

TEST_P(BothModes, ARestartDeliversFromItsFirstTickOn) {
    Receiver receiver;
    for (long long life = 0; life < 5; ++life) {
        receiver.Start(0, nullptr, GetParam());
        send(receiver, {life});
        receiver.Await(static_cast<size_t>(life + 1));
        receiver.Stop();
    }
    EXPECT_EQ(receiver.Received(), (Ticks{0, 1, 2, 3, 4}));
    EXPECT_EQ(Peek::NextSequence(receiver), 5) << "numbers only grow";
}

namespace {

/// Has enough after its first tick, and takes a while to get out.
class OneTickReceiver : public tnClockWatcher {
public:
    ~OneTickReceiver() override { Stop(); }
    void ReceiveTime(const tn_time_rec&) override {
        Stop();
        ++fTicks;
        for (int i = 0; i < 300; ++i) std::this_thread::yield();
        ++fLeft;
    }
    std::atomic<int> fTicks{0};
    std::atomic<int> fLeft{0};
};

}  // namespace

// Ticks come without end, so that the first meets a Start that has not returned yet.
TEST_P(BothModes, AReceiverThatStopsItselfGetsNoFurtherTick) {
    constexpr int kLives = 30;
    OneTickReceiver receiver;
    std::atomic<bool> done{false};
    std::thread producer([&] {
        while (!done) receiver.SignalTime(tick(1), true);
    });
    for (int life = 1; life <= kLives; ++life) {
        // Stopped by itself, it is started again while it is still on its way out.
        receiver.Start(0, nullptr, GetParam());
        EXPECT_GE(receiver.fLeft, life - 1) << "the life before is over";
        while (receiver.fTicks < life) std::this_thread::yield();
        EXPECT_FALSE(receiver.IsRunning());
    }
    receiver.Stop();
    EXPECT_EQ(receiver.fLeft, kLives) << "waited for";
    done = true;
    producer.join();
    EXPECT_EQ(receiver.fTicks, kLives);
}

TEST_P(BothModes, ATickBetweenTwoLivesBelongsToNeither) {
    Receiver receiver;
    send(receiver, {1});  // before the first start: stored, signalled, and forgotten by Start
    receiver.Start(0, nullptr, GetParam());
    send(receiver, {2});
    receiver.Await(1);
    receiver.Stop();
    send(receiver, {3});
    receiver.Start(0, nullptr, GetParam());
    send(receiver, {4});
    receiver.Await(2);
    receiver.Stop();
    EXPECT_EQ(receiver.Received(), (Ticks{2, 4}));
}

TEST_P(BothModes, AWakeUpThatBringsNothingNewDeliversNothing) {
    Receiver receiver;
    receiver.Start(0, nullptr, GetParam());
    Peek::Wake(receiver);
    send(receiver, {1});
    receiver.Await(1);
    Peek::Wake(receiver);
    Peek::Wake(receiver);
    send(receiver, {2});
    receiver.Await(2);
    receiver.Stop();
    EXPECT_EQ(receiver.Received(), (Ticks{1, 2}));
}

TEST(ClockWatcher, TheModeIsThatOfTheLatestStart) {
    Receiver receiver;
    receiver.Start(0, nullptr, true);
    send(receiver, {1});
    receiver.Await(1);
    receiver.Stop();
    receiver.Gate();
    receiver.Start(0, nullptr, false);
    send(receiver, {2});
    receiver.AwaitBusyWith(2);
    send(receiver, {3, 4});
    receiver.LetThrough();
    receiver.AwaitBusyWith(4);
    receiver.Open();
    receiver.Stop();
    EXPECT_EQ(receiver.Received(), (Ticks{1, 2, 4})) << "single again: tick 3 is lost";
}

// A producer that is held up on its way to the watcher while it stops and starts in the other mode.
TEST_P(BothModes, ATickThatCrossesARestartIsOneOfTheNewMode) {
    Receiver receiver;
    receiver.Start(0, nullptr, !GetParam());
    send(receiver, {1});
    receiver.Await(1);
    receiver.Stop();
    Peek::BeforeNextLock(receiver, [&] { receiver.Start(0, nullptr, GetParam()); });
    send(receiver, {2});
    ASSERT_EQ(Peek::SlotSequence(receiver, GetParam() ? 1 : 0), 1) << "where its mode keeps it";
    receiver.Await(2);
    receiver.Stop();
    EXPECT_EQ(receiver.Received(), (Ticks{1, 2}));
}

// Busy with tick 1 while others arrive. A signal given twice before a wait counts once.
TEST(ClockWatcher, ABusySingleReceiverGetsTheNewestTickAlone) {
    for (long long last : {2LL, 3LL, 4LL, 9LL}) {
        Receiver receiver;
        receiver.Gate();
        receiver.Start(0, nullptr, false);
        send(receiver, {1});
        receiver.AwaitBusyWith(1);
        for (long long n = 2; n <= last; ++n) send(receiver, {n});
        receiver.LetThrough();
        receiver.AwaitBusyWith(last);
        receiver.Open();
        receiver.Await(2);
        receiver.Stop();
        EXPECT_EQ(receiver.Received(), (Ticks{1, last}));
    }
}

TEST(ClockWatcher, TheFirstMultipleTickLandsInTheSecondSlot) {
    Receiver receiver;
    receiver.Gate();
    receiver.Start(0, nullptr, true);
    send(receiver, {1});
    receiver.AwaitBusyWith(1);
    EXPECT_EQ(Peek::SlotSequence(receiver, 0), -1);
    EXPECT_EQ(Peek::SlotSequence(receiver, 1), 0);
    EXPECT_EQ(Peek::SlotTick(receiver, 1), 1);
    send(receiver, {2});
    EXPECT_EQ(Peek::SlotSequence(receiver, 0), 1);
    EXPECT_EQ(Peek::SlotTick(receiver, 0), 2);
    receiver.LetThrough();
    receiver.AwaitBusyWith(2);
    send(receiver, {3});
    EXPECT_EQ(Peek::SlotSequence(receiver, 1), 2) << "over the older one";
    receiver.Open();
    receiver.Await(3);
    EXPECT_EQ(receiver.Received(), (Ticks{1, 2, 3}));
}

// Busy with 1, then 2 and 3 arrive:
//
//   wake-up   by tick 3   by tick 4   by none   by tick 5
//   delivers  2           3           4         5
//
// One behind from the first on, until a wake-up brings no tick of its own.
TEST(ClockWatcher, ABusyMultipleReceiverRunsOneTickBehindUntilAWakeUpBringsNone) {
    Receiver receiver;
    receiver.Gate();
    receiver.Start(0, nullptr, true);
    send(receiver, {1});
    receiver.AwaitBusyWith(1);
    send(receiver, {2, 3});
    receiver.LetThrough();
    receiver.AwaitBusyWith(2);
    receiver.Open();
    receiver.Await(2);
    send(receiver, {4});
    receiver.Await(3);
    EXPECT_EQ(receiver.Received(), (Ticks{1, 2, 3}));
    Peek::Wake(receiver);
    receiver.Await(4);
    EXPECT_EQ(receiver.Received(), (Ticks{1, 2, 3, 4}));
    send(receiver, {5});
    receiver.Await(5);
    EXPECT_EQ(receiver.Received(), (Ticks{1, 2, 3, 4, 5}));
}

TEST(ClockWatcher, ABusyMultipleReceiverKeepsTheTwoNewestTicks) {
    for (long long last : {4LL, 5LL, 6LL, 11LL}) {
        Receiver receiver;
        receiver.Gate();
        receiver.Start(0, nullptr, true);
        send(receiver, {1});
        receiver.AwaitBusyWith(1);
        for (long long n = 2; n <= last; ++n) send(receiver, {n});
        receiver.LetThrough();
        receiver.AwaitBusyWith(last - 1);
        receiver.Open();
        receiver.Await(2);
        Peek::Wake(receiver);
        receiver.Await(3);
        receiver.Stop();
        EXPECT_EQ(receiver.Received(), (Ticks{1, last - 1, last}));
    }
}

TEST(ClockWatcher, ATickLeftInTheOtherSlotWaitsForTheNextSignal) {
    Receiver receiver;
    receiver.Gate();
    receiver.Start(0, nullptr, true);
    send(receiver, {1});
    receiver.AwaitBusyWith(1);
    send(receiver, {2, 3});
    receiver.LetThrough();
    receiver.AwaitBusyWith(2);
    receiver.Open();
    receiver.Await(2);
    // The ticks have stopped: 3 is never delivered, and Stop does not deliver it either.
    receiver.Stop();
    EXPECT_EQ(receiver.Received(), (Ticks{1, 2}));
    EXPECT_EQ(Peek::SlotTick(receiver, 1), 3);
}

TEST(ClockWatcher, TheThreadHasItsNameAndClass) {
    struct Case {
        const char* name;
        char priority;
        const char* threadName;
        char sameAs;
    };
    const Case cases[] = {
        {nullptr, 0, "clock watcher", 4},
        {"renderer 3", 4, "renderer 3", 4},
        {"urgent", 6, "urgent", 6},
    };
    for (const Case& c : cases) {
        // What the base library makes of that class on this machine, refusal included.
        class Self : public zThreadMain {
        public:
            int Main(int, const char**) override {
                fScheduling = tests::Scheduling::OfThisThread();
                return 0;
            }
            tests::Scheduling fScheduling;
        };
        Self expected;
        std::unique_ptr<zThread> thread(zThread::Factory("", &expected, 4, c.sameAs));
        thread->Join();

        Receiver receiver;
        receiver.Start(c.priority, c.name, false);
        send(receiver, {1});
        receiver.Await(1);
        receiver.Stop();
        EXPECT_EQ(receiver.fName, c.threadName);
        EXPECT_EQ(receiver.fScheduling, expected.fScheduling) << c.threadName;
    }
}

TEST(ClockWatcher, AClocksQueuedTickReachesAllWatchersOnTheirOwnThreads) {
    tnClock clock;
    Receiver receivers[4];
    for (Receiver& receiver : receivers) {
        receiver.Start(0, nullptr, false);
        clock.AddWatcher(&receiver);
    }
    clock.ProduceTime(tick(1), true);
    for (Receiver& receiver : receivers) {
        receiver.Await(1);
        clock.RemoveWatcher(&receiver);
        EXPECT_NE(receiver.fThread, std::this_thread::get_id());
    }
    clock.ProduceTime(tick(2), true);
    for (Receiver& receiver : receivers) {
        receiver.Stop();
        EXPECT_EQ(receiver.Received(), Ticks{1}) << "nothing comes late";
    }
}

TEST(ClockWatcher, ASlowReceiverDoesNotHoldUpTheClock) {
    tnClock clock;
    Receiver slow;
    Receiver quick;
    slow.Gate();
    for (Receiver* receiver : {&slow, &quick}) {
        receiver->Start(0, nullptr, false);
        clock.AddWatcher(receiver);
    }
    for (long long n = 1; n <= 20; ++n) {
        clock.ProduceTime(tick(n), true);
        quick.Await(static_cast<size_t>(n));
    }
    EXPECT_EQ(quick.Received().size(), 20u);
    EXPECT_LE(slow.Received().size(), 1u);
    for (Receiver* receiver : {&slow, &quick}) clock.RemoveWatcher(receiver);
}
