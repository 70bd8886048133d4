#include "spar/zDirectObserver.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "spar/zObject.h"

namespace {
using Observer = zDirectObserver<std::function<void()>>;
}

TEST(zDirectObserver, CallsInOrderOfAddition) {
    Observer observer;
    auto owner = std::make_shared<zObject>();
    std::vector<int> called;
    for (int i = 0; i < 3; ++i) observer.Add(owner, [&, i] { called.push_back(i); });
    observer.Notify();
    observer.Notify();
    EXPECT_EQ(called, (std::vector<int>{0, 1, 2, 0, 1, 2}));
}

TEST(zDirectObserver, ADeadOwnersFunctionIsNotCalledAndItsEntryGoes) {
    Observer observer;
    auto owner = std::make_shared<zObject>();
    auto captured = std::make_shared<int>(0);
    observer.Add(owner, [captured] { ++*captured; });
    EXPECT_EQ(captured.use_count(), 2);
    owner.reset();
    observer.Notify();
    EXPECT_EQ(*captured, 0);
    EXPECT_EQ(captured.use_count(), 1);
}

TEST(zDirectObserver, AnOwnerThatNeverWasIsDead) {
    Observer observer;
    int called = 0;
    observer.Add(std::weak_ptr<void>(), [&] { ++called; });
    observer.Notify();
    EXPECT_EQ(called, 0);
}

TEST(zDirectObserver, AFunctionMayAddObserversForTheNextTime) {
    Observer observer;
    auto owner = std::make_shared<zObject>();
    int outer = 0, inner = 0;
    observer.Add(owner, [&] {
        ++outer;
        observer.Add(owner, [&] { ++inner; });
    });
    observer.Notify();
    EXPECT_EQ(outer, 1);
    EXPECT_EQ(inner, 0);
    observer.Notify();
    EXPECT_EQ(outer, 2);
    EXPECT_EQ(inner, 1);
}

TEST(zDirectObserver, WhetherAnOwnerLivesIsAskedAtEachCall) {
    Observer observer;
    auto first = std::make_shared<zObject>();
    auto second = std::make_shared<zObject>();
    int called = 0;
    observer.Add(first, [&] { second.reset(); });
    observer.Add(second, [&] { ++called; });
    observer.Notify();
    EXPECT_EQ(called, 0);
}

TEST(zDirectObserver, AnOwnerLivesAsLongAsItsFunctionRuns) {
    Observer observer;
    auto owner = std::make_shared<zObject>();
    std::weak_ptr<zObject> watched = owner;
    bool livedOn = false;
    auto captured = std::make_shared<int>(0);
    observer.Add(owner, [&, captured] {
        owner.reset();
        livedOn = !watched.expired();
    });
    observer.Notify();
    EXPECT_TRUE(livedOn);
    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(captured.use_count(), 1) << "its entry went with this walk";
}

TEST(zDirectObserver, AWalkGoesOnOverEntriesThatAWalkInsideItDropped) {
    Observer observer;
    auto first = std::make_shared<zObject>();
    auto second = std::make_shared<zObject>();
    auto captured = std::make_shared<int>(0);
    std::string called;
    observer.Add(first, [&] {
        called += 'a';
        if (called != "a") return;
        second.reset();
        observer.Notify();
        EXPECT_EQ(captured.use_count(), 2) << "in the outer walk's copy alone";
    });
    observer.Add(second, [&, captured] { called += 'b'; });
    observer.Add(first, [&] { called += 'c'; });
    EXPECT_EQ(captured.use_count(), 2);
    observer.Notify();
    EXPECT_EQ(called, "aacc");
    EXPECT_EQ(captured.use_count(), 1);
}

TEST(zDirectObserver, AFunctionMayNotify) {
    Observer observer;
    auto owner = std::make_shared<zObject>();
    int depth = 0, called = 0;
    observer.Add(owner, [&] {
        ++called;
        if (++depth < 3) observer.Notify();
    });
    observer.Notify();
    EXPECT_EQ(called, 3);
}

TEST(zDirectObserver, PassesArguments) {
    zDirectObserver<std::function<void(int, const std::string&)>> observer;
    auto owner = std::make_shared<zObject>();
    std::string heard;
    for (int i = 0; i < 2; ++i)
        observer.Add(owner, [&](int number, const std::string& text) {
            heard += text + std::to_string(number);
        });
    observer.Notify(5, std::string("a"));
    EXPECT_EQ(heard, "a5a5");
}

TEST(zDirectObserver, ThreadsMayAddAndNotifyAtOnce) {
    Observer observer;
    std::atomic<int> called{0};
    std::atomic<bool> stop{false};
    std::thread notifier([&] {
        while (!stop) observer.Notify();
    });
    constexpr int kRounds = 500;
    auto lasting = std::make_shared<zObject>();
    for (int round = 0; round < kRounds; ++round) {
        auto passing = std::make_shared<zObject>();
        observer.Add(passing, [&] { ++called; });
        if (round % 10 == 0) observer.Add(lasting, [&] { ++called; });
    }
    stop = true;
    notifier.join();
    observer.Notify();
    called = 0;
    observer.Notify();
    EXPECT_EQ(called, kRounds / 10);
}
