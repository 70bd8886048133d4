#include "spar/zCritical.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

#include "spar/zCriticalRW.h"
#include "spar/zSignal.h"
#include "spar/zTime.h"

namespace {

/// Two words that are equal whenever nobody writes.
struct Pair {
    long first = 0;
    long second = 0;
    void Step() {
        ++first;
        ++second;
    }
};

// Taking a lock again is what these tests are about, and what the compiler's analysis takes for a
// mistake: it does not look in here.
void take(zCritical& lock) SPAR_NO_THREAD_SAFETY_ANALYSIS {
    lock.Lock();
}
void give(zCritical& lock) SPAR_NO_THREAD_SAFETY_ANALYSIS {
    lock.Unlock();
}
void read(zCriticalRW& lock) SPAR_NO_THREAD_SAFETY_ANALYSIS {
    lock.LockRead(false);
}
void leave_read(zCriticalRW& lock) SPAR_NO_THREAD_SAFETY_ANALYSIS {
    lock.UnlockRead();
}
void write(zCriticalRW& lock) SPAR_NO_THREAD_SAFETY_ANALYSIS {
    lock.LockWrite(false);
}
void leave_write(zCriticalRW& lock) SPAR_NO_THREAD_SAFETY_ANALYSIS {
    lock.UnlockWrite();
}

/// Whether another thread does not come through in 50 ms of real time: enough for one that is let
/// through to be seen nearly always, while one that is held off never is.
bool is_held_off(zSignal& came) {
    return came.WaitFor(50000) != 0;
}

}  // namespace

TEST(zCritical, OneThreadMayTakeItAgain) {
    std::unique_ptr<zCritical> lock(zCritical::Factory(1));
    take(*lock);
    take(*lock);
    give(*lock);
    zSignal inside;
    std::thread other([&] {
        zCriticalLock held(*lock);
        inside.Raise();
    });
    EXPECT_TRUE(is_held_off(inside)) << "one hold is left";
    give(*lock);
    other.join();
    EXPECT_EQ(inside.WaitFor(0), 0);
}

TEST(zCritical, KeepsThreadsApart) {
    std::unique_ptr<zCritical> lock(zCritical::Factory(1));
    Pair pair;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round < 10000; ++round) {
                zCriticalLock held(*lock);
                take(*lock);
                pair.Step();
                give(*lock);
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(pair.first, 40000);
    EXPECT_EQ(pair.second, 40000);
}

TEST(zCritical, VirtualOperationsStandInTheAgreedOrder) {
    struct Recorder : zCritical {
        void Lock() override { fCalled = 'l'; }
        void Unlock() override { fCalled = 'u'; }
        int fCalled = 0;
    } lock;
    void** table = *reinterpret_cast<void***>(static_cast<zCritical*>(&lock));
    reinterpret_cast<void (*)(void*)>(table[2])(&lock);
    EXPECT_EQ(lock.fCalled, 'l');
    reinterpret_cast<void (*)(void*)>(table[3])(&lock);
    EXPECT_EQ(lock.fCalled, 'u');
}

TEST(zCriticalRW, ReadersShareAndWritersDoNot) {
    zCriticalRW lock;
    Pair pair;
    std::atomic<int> torn{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round < 5000; ++round) {
                zReadLock held(lock);
                if (pair.first != pair.second) ++torn;
            }
        });
    for (int i = 0; i < 2; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round < 5000; ++round) {
                zWriteLock held(lock);
                pair.Step();
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(pair.first, 10000);
}

TEST(zCriticalRW, TwoReadersAreInsideAtOnce) {
    zCriticalRW lock;
    zSignal inside, leave;
    lock.LockRead(false);
    std::thread other([&] {
        lock.LockRead(false);
        inside.Raise();
        leave.Wait();
        lock.UnlockRead();
    });
    inside.Wait();  // would never come if readers shut each other out
    lock.UnlockRead();
    leave.Raise();
    other.join();
}

// Readers that overlap without a break would keep a writer out for ever if it did not go first.
// This thread reads and a writer comes; readers follow until one has been held off for 50 ms of
// real time, which must happen once the writer waits. Ten seconds are the margin for it to get that
// far.
TEST(zCriticalRW, AWaitingWriterGoesBeforeReadersThatComeLater) {
    zCriticalRW lock;
    std::atomic<bool> written{false};
    read(lock);
    std::thread writer([&] {
        zWriteLock held(lock);
        written = true;
    });
    bool heldOff = false;
    const long long begin = zTime::MicroNow();
    while (!heldOff && zTime::MicroNow() < begin + 10000000) {
        zSignal came;
        std::thread reader([&] {
            zReadLock held(lock);
            came.Raise();
        });
        heldOff = is_held_off(came);
        if (heldOff) {
            EXPECT_FALSE(written);
            leave_read(lock);
        }
        reader.join();
    }
    EXPECT_TRUE(heldOff);
    if (!heldOff) leave_read(lock);
    writer.join();
    EXPECT_TRUE(written);
}

TEST(zCriticalRW, AReaderMayReadAgainPastAWaitingWriter) {
    zCriticalRW lock;
    std::atomic<int> order{0};
    int writerCame = 0;
    read(lock);
    std::thread writer([&] {
        zWriteLock held(lock);
        writerCame = ++order;
    });
    for (int i = 0; i < 100; ++i) {
        read(lock);
        std::this_thread::yield();
        leave_read(lock);
    }
    const int readerLeft = ++order;
    leave_read(lock);
    writer.join();
    EXPECT_LT(readerLeft, writerCame);
}

TEST(zCriticalRW, TheWriterMayReadAndWriteInside) {
    zCriticalRW lock;
    write(lock);
    read(lock);
    write(lock);
    leave_write(lock);
    leave_read(lock);
    zSignal came;
    std::thread reader([&] {
        zReadLock held(lock);
        came.Raise();
    });
    EXPECT_TRUE(is_held_off(came)) << "the first hold is left";
    leave_write(lock);
    reader.join();
    EXPECT_EQ(came.WaitFor(0), 0);
}

TEST(zCriticalRW, LocksOfOneThreadAreToldApart) {
    zCriticalRW first, second;
    zReadLock heldFirst(first);
    {
        zReadLock heldSecond(second);
        read(first);
        leave_read(first);
    }
    std::thread writer([&] { zWriteLock held(second); });  // comes in: the second is free
    writer.join();
}

namespace {

struct ReadsAsItGoes {
    ~ReadsAsItGoes() {
        // Blocks of the sizes that a thread's own storage had: they show what is written to it now
        // that it is gone.
        std::vector<std::vector<char>> freed;
        for (std::size_t size = 8; size <= 256; size += 8) freed.emplace_back(size, '\xA5');
        zCriticalRW lock;
        read(lock);
        read(lock);
        const bool isAlone = std::all_of(freed.begin(), freed.end(), [](const auto& block) {
            return std::count(block.begin(), block.end(), '\xA5') ==
                   static_cast<std::ptrdiff_t>(block.size());
        });
        leave_read(lock);
        leave_read(lock);
        if (!isAlone) std::_Exit(1);
    }
};

[[noreturn]] void read_until_the_end() {
    static const ReadsAsItGoes last;
    zCriticalRW lock;
    zReadLock held(lock);
    std::exit(0);
}

}  // namespace

TEST(zCriticalRWDeathTest, MayBeReadWhileTheProcessEnds) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(read_until_the_end(), testing::ExitedWithCode(0), "");
}
