#include "spar/zObservable.h"

#include <cstdlib>
#include <ctime>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "spar/zObserverHandler.h"
#include "spar/zRecord.h"
#include "spar/zString.h"
#include "spar/zThread.h"
#include "spar/zTime.h"

namespace {

class Listener : public zObserverHandler {
public:
    void Receive(const zNotification& notification) override {
        fHeard.push_back(notification);
        if (fOnReceive) fOnReceive();
    }
    std::vector<zNotification> fHeard;
    std::function<void()> fOnReceive;
};

class Watched : public zRecord {
public:
    explicit Watched(int& alive) : fAlive(alive) { ++fAlive; }
    ~Watched() override { --fAlive; }

private:
    int& fAlive;
};

}  // namespace

TEST(zObserverHandler, APostedRecordArrivesOnTheMainThreadLater) {
    Listener listener;
    auto* record = new zRecord;
    record->SetInt32('what', 'sync');
    std::thread([&] {
        zObserverHandler::PostNotification(listener.ObserverID(), record, 9);
    }).join();
    EXPECT_TRUE(listener.fHeard.empty());
    zThread::DrainMainQueue();
    ASSERT_EQ(listener.fHeard.size(), 1u);
    EXPECT_EQ(listener.fHeard[0].fData->AsInt32('what', 0), 'sync');
    EXPECT_EQ(listener.fHeard[0].fContext, 9u);
    EXPECT_EQ(listener.fHeard[0].fKind, 0);
}

TEST(zObserverHandler, TheRecordPassesOverInAnyCase) {
    int alive = 0;
    zObserverHandler::PostNotification(0, new Watched(alive), 0);
    EXPECT_EQ(alive, 0);
    zObserverHandler::PostNotification(0x7FFFFFFF, new Watched(alive), 0);
    zThread::DrainMainQueue();
    EXPECT_EQ(alive, 0);
    {
        Listener listener;
        zObserverHandler::PostNotification(listener.ObserverID(), new Watched(alive), 0);
        zObserverHandler::PostNotification(listener.ObserverID(), nullptr, 0);
        zThread::DrainMainQueue();
        EXPECT_EQ(listener.fHeard.size(), 2u);
        EXPECT_EQ(alive, 1);
    }
    EXPECT_EQ(alive, 0);
}

TEST(zObserverHandler, WhatIsOnItsWayToAHandlerThatGoesIsDropped) {
    int alive = 0;
    auto listener = std::make_unique<Listener>();
    const int id = listener->ObserverID();
    zObserverHandler::PostNotification(id, new Watched(alive), 0);
    listener.reset();
    Listener next;
    EXPECT_NE(next.ObserverID(), id);
    zThread::DrainMainQueue();
    EXPECT_EQ(alive, 0);
    EXPECT_TRUE(next.fHeard.empty());
}

TEST(zObserverHandler, ANotificationMayEndAnotherHandler) {
    Listener first;
    auto second = std::make_unique<Listener>();
    first.fOnReceive = [&] { second.reset(); };
    zObserverHandler::PostNotification(first.ObserverID(), nullptr, 0);
    zObserverHandler::PostNotification(second->ObserverID(), nullptr, 0);
    zThread::DrainMainQueue();
    EXPECT_EQ(first.fHeard.size(), 1u);
    EXPECT_EQ(second, nullptr);
}

TEST(zObservable, EveryObserverIsToldOnceAChange) {
    zObservable observable;
    Listener one, two;
    EXPECT_EQ(observable.Observe(one.ObserverID()), 0);
    EXPECT_EQ(observable.Observe(two.ObserverID()), 0);
    EXPECT_EQ(observable.Observe(one.ObserverID()), 0);
    EXPECT_EQ(observable.Notify('mdDC', "tnDestinationMsg", 'mdSC', nullptr), 0);
    zThread::DrainMainQueue();
    for (Listener* listener : {&one, &two}) {
        ASSERT_EQ(listener->fHeard.size(), 1u);
        EXPECT_EQ(listener->fHeard[0].fKind, 'mdDC');
        EXPECT_EQ(listener->fHeard[0].fWhat, "tnDestinationMsg");
        EXPECT_EQ(listener->fHeard[0].fSubKind, 'mdSC');
        EXPECT_EQ(listener->fHeard[0].fData, nullptr);
    }
}

TEST(zObservable, WhoStopsObservingIsToldNoMore) {
    zObservable observable;
    Listener listener;
    EXPECT_EQ(observable.StopObserving(listener.ObserverID()), -1);
    observable.Observe(listener.ObserverID());
    EXPECT_EQ(observable.StopObserving(listener.ObserverID()), 0);
    observable.Notify(1, nullptr, 2, nullptr);
    zThread::DrainMainQueue();
    EXPECT_TRUE(listener.fHeard.empty());
    EXPECT_EQ(observable.Observe(0), -22);
}

TEST(zObservable, EveryObserverGetsACopyOfTheData) {
    zObservable observable;
    Listener one, two;
    observable.Observe(one.ObserverID());
    observable.Observe(two.ObserverID());
    {
        zRecord data;
        data.SetInt32('numb', 5);
        observable.Notify(1, nullptr, 2, &data);
    }
    one.fOnReceive = [&] { one.fHeard[0].fData->SetInt32('numb', 6); };
    zThread::DrainMainQueue();
    EXPECT_EQ(two.fHeard[0].fData->AsInt32('numb', 0), 5);
    EXPECT_EQ(one.fHeard[0].fWhat, "");
}

// A destination of a host derives from this and adds its own operations behind these.
TEST(zObservable, VirtualOperationsStandInTheAgreedOrder) {
    struct Recorder : zObservable {
        int Observe(int) override { return 'o'; }
        int StopObserving(int) override { return 's'; }
        int Notify(int, const char*, int, zRecord*) override { return 'n'; }
    } observable;
    void** table = *reinterpret_cast<void***>(static_cast<zObservable*>(&observable));
    EXPECT_EQ(reinterpret_cast<int (*)(void*, int)>(table[2])(&observable, 1), 'o');
    EXPECT_EQ(reinterpret_cast<int (*)(void*, int)>(table[3])(&observable, 1), 's');
    using Notify = int (*)(void*, int, const char*, int, zRecord*);
    EXPECT_EQ(reinterpret_cast<Notify>(table[4])(&observable, 1, nullptr, 2, nullptr), 'n');
}

TEST(zObservable, ThreadsMayObserveAndNotifyAtOnce) {
    zObservable observable;
    Listener listener;
    observable.Observe(listener.ObserverID());
    std::thread changing([&] {
        for (int round = 0; round < 1000; ++round) {
            observable.Observe(0x40000000 + round);
            observable.StopObserving(0x40000000 + round);
        }
    });
    for (int round = 0; round < 1000; ++round) observable.Notify(round, "x", 0, nullptr);
    changing.join();
    zThread::DrainMainQueue();
    ASSERT_EQ(listener.fHeard.size(), 1000u);
    for (int round = 0; round < 1000; ++round)
        EXPECT_EQ(listener.fHeard[static_cast<std::size_t>(round)].fKind, round);
}

TEST(zTime, TextIsTheLocalWallClock) {
    setenv("TZ", "XYZ-5:30", 1);
    tzset();
    zString text;
    zTime::AsTimeString(text, 0, 'shrt');
    EXPECT_STREQ(text.CString(), "1970-01-01 05:30:00");
    zTime::AsTimeString(text, 1933135628, 'long');
    EXPECT_STREQ(text.CString(), "2031-04-05 11:37:08 +0530");
    zTime::AsTimeString(text, 0x7FFFFFFFFFFFFFFF, 'shrt');
    EXPECT_STREQ(text.CString(), "");
    unsetenv("TZ");
    tzset();
}
