#include "spar/xCUnknown.h"

#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "spar/zAsSharedPtr.h"
#include "spar/zRefCount.h"

namespace {

class Speaker : public xCUnknown {
public:
    explicit Speaker(int& deaths) : fDeaths(deaths) {}
    ~Speaker() override { ++fDeaths; }
    int Concrete_QueryInterface(const char* name, void** out) override {
        if (name != nullptr && std::string(name) == "Speaker") return GetInterface(this, out);
        return xCUnknown::Concrete_QueryInterface(name, out);
    }

private:
    int& fDeaths;
};

class Kept : public xCUnknown {
public:
    void DeleteObject() override { ++fDeletions; }
    int fDeletions = 0;
};

struct Left : xIUnknown {
    virtual int Port() = 0;

protected:
    ~Left() = default;
};

/// Two lines of bases with one count between them.
class TwoFaced final : public Left, public xCUnknown {
public:
    int QueryInterface(const char* name, void** out) override {
        return Concrete_QueryInterface(name, out);
    }
    int AddRef() override { return Concrete_AddRef(); }
    int Release() override { return Concrete_Release(); }
    int Concrete_QueryInterface(const char* name, void** out) override {
        if (std::string(name) == "Left") return GetInterface(static_cast<Left*>(this), out);
        return xCUnknown::Concrete_QueryInterface(name, out);
    }
    int Port() override { return 42; }
};

class Counted : public zRefCount {
public:
    explicit Counted(std::atomic<int>& deaths) : fDeaths(deaths) {}
    ~Counted() override { ++fDeaths; }

private:
    std::atomic<int>& fDeaths;
};

}  // namespace

TEST(xCUnknown, CountStartsAtOneAndTheLastReleaseDeletes) {
    int deaths = 0;
    xIUnknown* object = new Speaker(deaths);
    EXPECT_EQ(object->AddRef(), 2);
    EXPECT_EQ(object->Release(), 1);
    EXPECT_EQ(deaths, 0);
    EXPECT_EQ(object->Release(), 0);
    EXPECT_EQ(deaths, 1);
}

TEST(xCUnknown, QueryInterfaceAddsAReferenceForKnownNamesOnly) {
    int deaths = 0;
    auto* object = new Speaker(deaths);
    void* out = nullptr;
    ASSERT_EQ(object->QueryInterface("Speaker", &out), 0);
    EXPECT_EQ(out, static_cast<void*>(object));
    EXPECT_EQ(object->Release(), 1);

    ASSERT_EQ(object->QueryInterface("xIUnknown", &out), 0);
    EXPECT_EQ(object->Release(), 1);

    out = object;
    EXPECT_EQ(object->QueryInterface("Nobody", &out), -31);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(object->QueryInterface("Speaker", nullptr), -22);
    EXPECT_EQ(object->QueryInterface(nullptr, &out), -22);
    EXPECT_EQ(object->Release(), 0);
}

TEST(xCUnknown, GetInterfaceOfNothingGivesNothing) {
    int deaths = 0;
    Speaker object(deaths);
    void* out = &object;
    EXPECT_EQ(object.GetInterface(nullptr, &out), -31);
    EXPECT_EQ(out, nullptr);
}

TEST(xCUnknown, TheLastReleaseGoesThroughDeleteObject) {
    Kept object;
    EXPECT_EQ(object.Release(), 0);
    EXPECT_EQ(object.fDeletions, 1);
}

TEST(xCUnknown, InterfacesOfOneObjectShareItsCount) {
    auto* object = new TwoFaced;
    void* out = nullptr;
    ASSERT_EQ(object->QueryInterface("Left", &out), 0);
    Left* left = static_cast<Left*>(out);
    EXPECT_EQ(left->Port(), 42);
    void* back = nullptr;
    ASSERT_EQ(left->QueryInterface("xIUnknown", &back), 0);
    EXPECT_EQ(object->Release(), 2);
    EXPECT_EQ(left->Release(), 1);
    EXPECT_EQ(left->Release(), 0);
}

// Add-ons are built apart from the host: they find these operations by their place in the table.
TEST(xCUnknown, VirtualOperationsStandInTheAgreedOrder) {
    struct Recorder : xCUnknown {
        int QueryInterface(const char*, void**) override { return 100; }
        int AddRef() override { return 101; }
        int Release() override { return 102; }
        int GetInterface(xIUnknown*, void**) override { return 105; }
        int Concrete_QueryInterface(const char*, void**) override { return 106; }
        void DeleteObject() override { fDeleted = true; }
        bool fDeleted = false;
    } object;
    using Plain = int (*)(void*);
    using Ask = int (*)(void*, const void*, void**);
    void** table = *reinterpret_cast<void***>(static_cast<xCUnknown*>(&object));
    EXPECT_EQ(reinterpret_cast<Ask>(table[0])(&object, nullptr, nullptr), 100);
    EXPECT_EQ(reinterpret_cast<Plain>(table[1])(&object), 101);
    EXPECT_EQ(reinterpret_cast<Plain>(table[2])(&object), 102);
    EXPECT_EQ(reinterpret_cast<Ask>(table[5])(&object, nullptr, nullptr), 105);
    EXPECT_EQ(reinterpret_cast<Ask>(table[6])(&object, nullptr, nullptr), 106);
    reinterpret_cast<void (*)(void*)>(table[7])(&object);
    EXPECT_TRUE(object.fDeleted);
}

TEST(zRefCount, ReleaseGivesTheNewCountAndDeletesAtZero) {
    std::atomic<int> deaths{0};
    auto* object = new Counted(deaths);
    EXPECT_EQ(object->AddRef(), 2);
    EXPECT_EQ(object->Release(), 1);
    EXPECT_EQ(deaths, 0);
    EXPECT_EQ(object->Release(), 0);
    EXPECT_EQ(deaths, 1);
}

TEST(zRefCount, ACopyHasACountOfItsOwn) {
    zRefCount object;
    object.AddRef();
    zRefCount copy(object);
    EXPECT_EQ(copy.AddRef(), 2);
    copy = object;
    EXPECT_EQ(copy.AddRef(), 3);
}

TEST(zRefCount, ThreadsThatCountEndTheObjectOnce) {
    std::atomic<int> deaths{0};
    constexpr int kThreads = 4;
    auto* object = new Counted(deaths);
    for (int i = 1; i < kThreads; ++i) object->AddRef();
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([object] {
            for (int round = 0; round < 20000; ++round) {
                object->AddRef();
                object->Release();
            }
            object->Release();
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(deaths, 1);
}

TEST(zAsSharedPtr, HoldsOneReferenceAndEndsInRelease) {
    std::atomic<int> deaths{0};
    auto* object = new Counted(deaths);
    {
        std::shared_ptr<Counted> shared = zAsSharedPtr(object);
        std::shared_ptr<Counted> another = shared;
        EXPECT_EQ(object->AddRef(), 3);  // the maker's, the pointers', this one
        EXPECT_EQ(object->Release(), 2);
    }
    EXPECT_EQ(deaths, 0);
    EXPECT_EQ(object->Release(), 0);
    EXPECT_EQ(deaths, 1);
}

TEST(zAsSharedPtr, KeepsTheObjectAfterItsMakerHasReleasedIt) {
    int deaths = 0;
    auto* object = new Speaker(deaths);
    std::shared_ptr<Speaker> shared = zAsSharedPtr<Speaker>(object);
    EXPECT_EQ(object->Release(), 1);
    EXPECT_EQ(deaths, 0);
    shared.reset();
    EXPECT_EQ(deaths, 1);
}

TEST(zAsSharedPtr, NullGivesAnEmptyPointer) {
    EXPECT_EQ(zAsSharedPtr(static_cast<zRefCount*>(nullptr)), nullptr);
}
