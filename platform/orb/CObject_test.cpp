#include "orb/CObject.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "orb/CString.h"
#include "orb/RObject.h"
#include "orb/testSupport.h"

namespace Quillon::Orb {
namespace {

CObject* gDestroyed = nullptr;

class Destroyable : public CObject {
public:
    Destroyable() : CObject('dest', [](CObject* object) { gDestroyed = object; }) {}
};

TEST(CObject, StartsWithOneReferenceAndDiesWithTheLast) {
    Counted* object = new Counted;
    EXPECT_EQ(1, Counted::gLiving);
    EXPECT_FALSE(object->IsShared());
    object->Acquire();
    EXPECT_TRUE(object->IsShared());
    object->Release();
    EXPECT_EQ(1, Counted::gLiving);
    object->Release();
    EXPECT_EQ(0, Counted::gLiving);
}

TEST(CObject, DestroyFunctionStandsInForDelete) {
    auto* object = new Destroyable;
    object->Release();
    EXPECT_EQ(object, gDestroyed);
    delete object;
}

TEST(CObject, TypeEqualityHashAndText) {
    RObject<CObject> object(new CObject('li<>', nullptr));
    RObject<CObject> other(new CObject('li<>', nullptr));
    EXPECT_EQ(0x6C693C3Eu, object->GetType());
    EXPECT_TRUE(object->IsType('li<>'));
    EXPECT_FALSE(object->IsType('vu<>'));
    EXPECT_TRUE(object->Equals(object.Get()));
    EXPECT_FALSE(object->Equals(other.Get()));
    EXPECT_FALSE(object->Equals(nullptr));
    EXPECT_EQ(object->GetHashCode(), object->GetHashCode());
    RObject<CString> text(object->ToString());
    EXPECT_STREQ("'li<>'", text->GetText());
}

TEST(CObject, CountsHoldAcrossThreads) {
    RObject<Counted> object(new Counted);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([object] {
            for (int n = 0; n < 20000; ++n) RObject<Counted> copy = object;
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_FALSE(object->IsShared());
    EXPECT_EQ(1, Counted::gLiving);
    object.Clear();
    EXPECT_EQ(0, Counted::gLiving);
}

TEST(CObject, MonitorIsRecursiveAndExcludesOthers) {
    RObject<CObject> object(new CObject);
    EXPECT_TRUE(object->Synchronize());
    object->Enter();
    EXPECT_TRUE(object->TryEnter());
    object->Exit();
    bool entered = true;
    std::thread([&] { entered = object->TryEnter(); }).join();
    EXPECT_FALSE(entered);
    object->Exit();
    std::thread([&] {
        entered = object->TryEnter();
        if (entered) object->Exit();
    }).join();
    EXPECT_TRUE(entered);
}

TEST(CObject, NotificationWakesWhoWaits) {
    RObject<CObject> object(new CObject);
    int stage = 0;
    std::thread waiter([&] {
        object->Enter();
        stage = 1;
        object->NotifyAll();
        while (stage != 2) object->Wait();
        stage = 3;
        object->Notify();
        object->Exit();
    });
    object->Enter();
    while (stage != 1) object->Wait(60000);
    stage = 2;
    object->Notify();
    while (stage != 3) object->Wait(60000);
    object->Exit();
    waiter.join();
    EXPECT_EQ(3, stage);
}

TEST(CObject, WaitEndsWhenTheTimeIsUp) {
    RObject<CObject> object(new CObject);
    object->Enter();
    // Nobody notifies: sooner or later a wait must end for want of time.
    while (object->Wait(1)) {
    }
    object->Exit();
}

TEST(CString, CopiesAndCompares) {
    char text[] = "cam1";
    RObject<CString> string(new CString(text));
    text[0] = 'x';
    EXPECT_STREQ("cam1", string->GetText());
    EXPECT_EQ(4, string->GetLength());
    RObject<CString> same(new CString("cam1"));
    RObject<CString> empty(new CString(nullptr));
    EXPECT_TRUE(string->Equals(same.Get()));
    EXPECT_EQ(string->GetHashCode(), same->GetHashCode());
    EXPECT_FALSE(string->Equals(empty.Get()));
    EXPECT_EQ(0, empty->GetLength());
    RObject<CString> itself(string->ToString());
    EXPECT_EQ(string, itself);
}

TEST(RObject, TakesOverAPointerAndSharesAHandle) {
    {
        RObject<Counted> a(new Counted(1));
        EXPECT_FALSE(a->IsShared());
        RObject<CObject> b = a;
        EXPECT_TRUE(a->IsShared());
        b.SafeAcquire(a);
        b.Clear();
        EXPECT_FALSE(a->IsShared());
        // A pointer comes with its reference: the old object goes, nothing is acquired.
        a = new Counted(2);
        EXPECT_EQ(1, Counted::gLiving);
        EXPECT_FALSE(a->IsShared());
        EXPECT_EQ(2, a->GetNumber());
    }
    EXPECT_EQ(0, Counted::gLiving);
}

TEST(RObject, SafeAcquireReleasesAcquiresAndLeavesTheSameAlone) {
    RObject<Counted> a(new Counted(1));
    RObject<Counted> b(new Counted(2));
    a.SafeAcquire(b);
    EXPECT_EQ(1, Counted::gLiving);
    EXPECT_EQ(a, b);
    a.SafeAcquire(b);
    b.Clear();
    EXPECT_FALSE(a->IsShared());
    a.SafeAcquire(RObject<Counted>());
    EXPECT_EQ(0, Counted::gLiving);
}

TEST(RObject, MovesWithoutCounting) {
    RObject<Counted> a(new Counted(1));
    RObject<Counted> b = std::move(a);
    EXPECT_FALSE(a);
    EXPECT_FALSE(b->IsShared());
    RObject<const Counted> c = std::move(b);
    EXPECT_FALSE(c->IsShared());
    RObject<const Counted>& same = c;
    c = std::move(same);
    EXPECT_TRUE(c);
    c = nullptr;
    EXPECT_EQ(0, Counted::gLiving);
}

TEST(RObject, DetachGivesAndReceiveTakes) {
    RObject<Counted> a(new Counted(1));
    Counted* plain = a.Detach();
    EXPECT_FALSE(a);
    a.Receive() = plain;
    EXPECT_EQ(plain, a.Get());
    a.Receive() = nullptr;
    EXPECT_EQ(0, Counted::gLiving);
    RObject<Counted> shared = RObject<Counted>::Share(nullptr);
    EXPECT_EQ(shared, nullptr);
}

}  // namespace
}  // namespace Quillon::Orb
