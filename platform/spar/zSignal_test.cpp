#include "spar/zSignal.h"

#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

#include "spar/zTime.h"

namespace {
constexpr long long kLong = 60000000;  // a minute: never waited for, only told apart from for ever
}

TEST(zSignal, ARaiseBeforeTheWaitIsNotLost) {
    std::unique_ptr<zSignal> signal(zSignal::Factory());
    signal->Raise();
    signal->Wait();
    EXPECT_NE(signal->WaitFor(0), 0);
}

TEST(zSignal, RaisesThatNobodyHasSeenMerge) {
    zSignal signal;
    for (int i = 0; i < 5; ++i) signal.Raise();
    EXPECT_EQ(signal.WaitFor(kLong), 0);
    EXPECT_NE(signal.WaitFor(0), 0);
    EXPECT_NE(signal.WaitFor(-1), 0);
}

// Real time: that a wait of 20 ms lasts at least that long.
TEST(zSignal, TheWaitEndsWhenItsTimeIsUp) {
    zSignal signal;
    const long long before = zTime::MicroNow();
    EXPECT_NE(signal.WaitFor(20000), 0);
    EXPECT_GE(zTime::MicroNow() - before, 20000);
    signal.Raise();
    EXPECT_EQ(signal.WaitFor(0), 0);
}

TEST(zSignal, AnAbsurdTimeIsForEver) {
    zSignal signal;
    std::thread raiser([&] { signal.Raise(); });
    EXPECT_EQ(signal.WaitFor(0x7FFFFFFFFFFFFFFF), 0);
    raiser.join();
}

// Two threads throw one ball: a raise that got lost would stop the game.
TEST(zSignal, NothingIsLostBetweenTwoThreads) {
    zSignal ping, pong;
    constexpr int kRounds = 20000;
    int ball = 0;  // handed over by the signals alone
    std::thread other([&] {
        for (int round = 0; round < kRounds; ++round) {
            ping.Wait();
            ++ball;
            pong.Raise();
        }
    });
    for (int round = 0; round < kRounds; ++round) {
        ++ball;
        ping.Raise();
        if (round % 2 == 0)
            pong.Wait();
        else
            ASSERT_EQ(pong.WaitFor(kLong), 0);
    }
    other.join();
    EXPECT_EQ(ball, 2 * kRounds);
}

// The last raise comes after the last item, so a consumer that drains on each raise sees them all.
TEST(zSignal, AConsumerSeesTheLastOfMergedRaises) {
    zSignal signal;
    std::atomic<int> produced{0};
    constexpr int kItems = 50000;
    std::thread producer([&] {
        for (int item = 0; item < kItems; ++item) {
            produced.fetch_add(1, std::memory_order_relaxed);
            signal.Raise();
        }
    });
    while (produced.load(std::memory_order_relaxed) < kItems) signal.Wait();
    producer.join();
    EXPECT_EQ(produced, kItems);
}

// Each raise is answered before the next: then each lets exactly one of the waiters go.
TEST(zSignal, ARaiseLetsExactlyOneWaiterGo) {
    zSignal signal, answer;
    std::atomic<int> went{0};
    std::atomic<bool> stop{false};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i)
        waiters.emplace_back([&] {
            while (true) {
                // Short waits among the long: leaving on time meets raises from all sides.
                if (signal.WaitFor(50) != 0) continue;
                if (stop) return;
                ++went;
                answer.Raise();
            }
        });
    constexpr int kRounds = 3000;
    for (int round = 0; round < kRounds; ++round) {
        signal.Raise();
        ASSERT_EQ(answer.WaitFor(kLong), 0);
    }
    EXPECT_EQ(went, kRounds);
    EXPECT_NE(answer.WaitFor(0), 0);
    stop = true;
    for (auto& waiter : waiters) {
        // A raise may have merged with one before it; raise until every waiter has gone.
        std::atomic<bool> joined{false};
        std::thread pusher([&] {
            while (!joined) {
                signal.Raise();
                std::this_thread::yield();
            }
        });
        waiter.join();
        joined = true;
        pusher.join();
    }
}

TEST(zSignal, TheWaiterThatWasLetGoMayDeleteTheSignal) {
    for (int round = 0; round < 2000; ++round) {
        auto* signal = new zSignal;
        std::thread waiter([signal] {
            signal->Wait();
            delete signal;
        });
        signal->Raise();
        waiter.join();
    }
}

// Owners hold signals by this type across library borders: the order is part of it.
TEST(zSignal, VirtualOperationsStandInTheAgreedOrder) {
    struct Recorder : zSignal {
        void Wait() override { fCalled = 'w'; }
        int WaitFor(long long) override { return fCalled = 't'; }
        void Raise() override { fCalled = 'r'; }
        int fCalled = 0;
    } signal;
    void** table = *reinterpret_cast<void***>(static_cast<zSignal*>(&signal));
    reinterpret_cast<void (*)(void*)>(table[2])(&signal);
    EXPECT_EQ(signal.fCalled, 'w');
    EXPECT_EQ(reinterpret_cast<int (*)(void*, long long)>(table[3])(&signal, 5), 't');
    reinterpret_cast<void (*)(void*)>(table[4])(&signal);
    EXPECT_EQ(signal.fCalled, 'r');
}
